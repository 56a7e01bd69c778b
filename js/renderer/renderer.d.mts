/** A picture in three planes, as a frame object with a picture has it. */
export interface I420Picture {
  /** In pixels, from 1. The chroma planes have half of both, rounded up. */
  width: number;
  height: number;
  /** Each plane's bytes, and how many bytes lie from one row to the next: at least the width. */
  yPlaneBuffer: Uint8Array;
  yPlaneBufferStride: number;
  uPlaneBuffer: Uint8Array;
  uPlaneBufferStride: number;
  vPlaneBuffer: Uint8Array;
  vPlaneBufferStride: number;
}

export interface I420RendererOptions {
  /** The luminance range: 'limited' is 16 to 235 (the default), 'full' is 0 to 255. */
  range?: 'limited' | 'full';
  /** '2d' does without WebGL2. 'webgl2' (the default) falls back to it where there is no more. */
  use?: 'webgl2' | '2d';
}

/**
 * Draws I420 frames on a canvas of a web page, with WebGL2 or, where there is none, with the canvas'
 * 2D context. Colour is BT.601. The canvas takes each picture's size; scale it with CSS.
 */
export class I420Renderer {
  /** Owns `canvas`, which must not have a context yet, until dispose(). */
  constructor(canvas: HTMLCanvasElement, options?: I420RendererOptions);
  /** The drawing method in use. */
  readonly kind: 'webgl2' | '2d';
  /**
   * Draws a picture. The planes are not needed after it returns.
   * @throws RangeError when planes and size do not match
   */
  draw(picture: I420Picture): void;
  /** Makes the canvas black. */
  clear(): void;
  /** Releases the browser's resources for the canvas, which cannot be drawn on again. */
  dispose(): void;
}
