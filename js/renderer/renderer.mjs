// Draws I420 frames, as the addon hands them out, on a canvas of a web page.
//
//   import { I420Renderer } from 'tessel-wrapper/renderer';
//
//   const renderer = new I420Renderer(document.querySelector('canvas'));
//   renderer.draw(frame); // for every frame
//   renderer.dispose();   // when the canvas goes
//
// Plain ES modules without dependencies: a page may load this file as it is.

import { CanvasPainter } from './canvas_painter.mjs';
import { planesOf, RANGES } from './planes.mjs';
import { WebglPainter } from './webgl_painter.mjs';

// A browser takes the WebGL context of the oldest canvas away when a page has more than 16. Canvases
// beyond these are painted without WebGL.
const MOST_WEBGL_CONTEXTS = 14;
let webglContexts = 0;

const CONTEXT_OPTIONS = { alpha: false, antialias: false, depth: false, stencil: false };

export class I420Renderer {
  #canvas;
  #range;
  #painter; // undefined while the browser has taken the WebGL context away, and after dispose()
  #kind;
  #disposed = false;

  // Owns `canvas`, which must not have a context yet, until dispose(). `range` tells what the
  // luminance of the frames means: 'limited' (16 to 235) or 'full' (0 to 255). `use` is '2d' to do
  // without WebGL2; with 'webgl2' it is still left out where the browser or the page has no more.
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
  // any more when this returns. Throws a RangeError where planes and size do not fit each other.
  draw(frame) {
    const planes = planesOf(frame);
    this.#painter?.paint(frame.width, frame.height, planes);
  }

  // Makes the canvas black.
  clear() {
    this.#painter?.clear();
  }

  // Gives back what the browser holds for the canvas, which cannot be drawn on again.
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

  // What is made of a context that is lost works no better than none: the context is awaited.
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
