// Draws the addon's I420 frames on a canvas of a web page.
//
//   import { I420Renderer } from 'tessel-wrapper/renderer';
//
//   const renderer = new I420Renderer(document.querySelector('canvas'));
//   renderer.draw(frame); // for every frame
//   renderer.dispose();   // when the canvas is removed
//
// Plain ES modules without dependencies: a page may load this file as it is.

import { CanvasPainter } from './canvas_painter.mjs';
import { planesOf, RANGES } from './planes.mjs';
import { WebglPainter } from './webgl_painter.mjs';

// When a page has more than 16 WebGL contexts, a browser drops that of the oldest canvas. Further
// canvases are painted without WebGL.
const MOST_WEBGL_CONTEXTS = 14;
let webglContexts = 0;

const CONTEXT_OPTIONS = { alpha: false, antialias: false, depth: false, stencil: false };

export class I420Renderer {
  #canvas;
  #range;
  #painter; // undefined while the WebGL context is lost, and after dispose()
  #kind;
  #disposed = false;

  // Owns `canvas`, which must not have a context yet, until dispose(). `range` is the luminance
  // range of the frames: 'limited' (16 to 235) or 'full' (0 to 255). `use` is '2d' for painting
  // without WebGL2; 'webgl2' falls back to that where no WebGL2 context is available.
  constructor(canvas, { range = 'limited', use = 'webgl2' } = {}) {
    if (!Object.hasOwn(RANGES, range)) throw new TypeError(`unknown range: ${range}`);
    if (use !== 'webgl2' && use !== '2d') throw new TypeError(`cannot use ${use}`);
    this.#canvas = canvas;
    this.#range = RANGES[range];
    const gl =
      use === 'webgl2' && webglContexts < MOST_WEBGL_CONTEXTS
        ? canvas.getContext('webgl2', CONTEXT_OPTIONS)
        : null;
    if (gl) {
      webglContexts += 1;
      this.#kind = 'webgl2';
      canvas.addEventListener('webglcontextlost', this.#onContextLost);
      canvas.addEventListener('webglcontextrestored', this.#onContextRestored);
      this.#makeWebglPainter(gl);
    } else {
      this.#kind = '2d';
      this.#painter = new CanvasPainter(canvas.getContext('2d', { alpha: false }), this.#range);
    }
  }

  // 'webgl2' or '2d'.
  get kind() {
    return this.#kind;
  }

  // Draws a frame object that has a picture: the canvas takes its size. The planes are not needed
  // any more when this returns. Throws a RangeError when planes and size do not match.
  draw(frame) {
    const planes = planesOf(frame);
    this.#painter?.paint(frame.width, frame.height, planes);
  }

  // Makes the canvas black.
  clear() {
    this.#painter?.clear();
  }

  // Releases the browser's resources for the canvas, which cannot be drawn on again.
  dispose() {
    if (this.#disposed) return;
    this.#disposed = true;
    this.#canvas.removeEventListener('webglcontextlost', this.#onContextLost);
    this.#canvas.removeEventListener('webglcontextrestored', this.#onContextRestored);
    this.#painter?.dispose();
    this.#painter = undefined;
    if (this.#kind === 'webgl2') webglContexts -= 1;
  }

  #onContextLost = (event) => {
    event.preventDefault(); // says that the context is wanted again
    this.#painter = undefined;
  };

  #onContextRestored = () => this.#makeWebglPainter(this.#canvas.getContext('webgl2'));

  // A painter on a lost context would not work: it is made when the context is restored.
  #makeWebglPainter(gl) {
    try {
      this.#painter = new WebglPainter(gl, this.#range);
    } catch (error) {
      if (gl.isContextLost()) return;
      this.dispose();
      throw error;
    }
  }
}
