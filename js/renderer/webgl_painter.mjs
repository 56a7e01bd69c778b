// Paints I420 pictures with WebGL2: one texture for each plane, reused while the size of the
// pictures does not change, and a shader that converts them to RGB.

const VERTEX_SHADER = `#version 300 es
out vec2 position;
void main() {
  // One triangle that covers the canvas; position is 0,0 at the picture's top left.
  position = vec2(float(gl_VertexID % 2) * 2.0, float(gl_VertexID / 2) * 2.0);
  gl_Position = vec4(position.x * 2.0 - 1.0, 1.0 - position.y * 2.0, 0.0, 1.0);
}`;

const FRAGMENT_SHADER = `#version 300 es
precision mediump float;
precision highp sampler2D;
in highp vec2 position;
out vec4 colour;
uniform sampler2D yPlane, uPlane, vPlane;
uniform highp vec2 chromaScale;
uniform float black, scale, redV, greenU, greenV, blueU;
void main() {
  highp vec2 chroma = position * chromaScale;
  float y = scale * (texture(yPlane, position).r - black);
  float u = texture(uPlane, chroma).r - 128.0 / 255.0;
  float v = texture(vPlane, chroma).r - 128.0 / 255.0;
  colour = vec4(y + redV * v, y + greenU * u + greenV * v, y + blueU * u, 1.0);
}`;

const PLANES = ['yPlane', 'uPlane', 'vPlane'];

export class WebglPainter {
  #gl;
  #program;
  #textures = [];

  constructor(gl, range) {
    this.#gl = gl;
    this.#program = link(gl);
    gl.useProgram(this.#program);
    gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
    PLANES.forEach((name, unit) => gl.uniform1i(this.#uniform(name), unit));
    for (const [name, value] of Object.entries(range)) {
      gl.uniform1f(this.#uniform(name), name === 'black' ? value / 255 : value);
    }
  }

  paint(width, height, planes) {
    const gl = this.#gl;
    const { canvas } = gl;
    if (canvas.width !== width || canvas.height !== height) {
      canvas.width = width;
      canvas.height = height;
    }
    if (this.#textures[0]?.width !== width || this.#textures[0]?.height !== height) {
      this.#makeTextures(planes);
    }
    planes.forEach((plane, unit) => {
      gl.activeTexture(gl.TEXTURE0 + unit);
      gl.pixelStorei(gl.UNPACK_ROW_LENGTH, plane.stride);
      gl.texSubImage2D(
        ...[gl.TEXTURE_2D, 0, 0, 0, plane.width, plane.height],
        ...[gl.RED, gl.UNSIGNED_BYTE, plane.data],
      );
    });
    gl.viewport(0, 0, width, height);
    gl.drawArrays(gl.TRIANGLES, 0, 3);
  }

  clear() {
    const gl = this.#gl;
    gl.clearColor(0, 0, 0, 1);
    gl.clear(gl.COLOR_BUFFER_BIT);
  }

  dispose() {
    this.#gl.getExtension('WEBGL_lose_context')?.loseContext();
  }

  #uniform(name) {
    return this.#gl.getUniformLocation(this.#program, name);
  }

  #makeTextures(planes) {
    const gl = this.#gl;
    for (const { texture } of this.#textures) gl.deleteTexture(texture);
    this.#textures = planes.map(({ width, height }, unit) => {
      const texture = gl.createTexture();
      gl.activeTexture(gl.TEXTURE0 + unit);
      gl.bindTexture(gl.TEXTURE_2D, texture);
      gl.texStorage2D(gl.TEXTURE_2D, 1, gl.R8, width, height);
      for (const filter of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER]) {
        gl.texParameteri(gl.TEXTURE_2D, filter, gl.LINEAR);
      }
      for (const wrap of [gl.TEXTURE_WRAP_S, gl.TEXTURE_WRAP_T]) {
        gl.texParameteri(gl.TEXTURE_2D, wrap, gl.CLAMP_TO_EDGE);
      }
      return { texture, width, height };
    });
    // With odd dimensions, the last chroma column and row extend half a sample beyond the picture.
    const [luma, chroma] = planes;
    gl.uniform2f(
      this.#uniform('chromaScale'),
      luma.width / (2 * chroma.width),
      luma.height / (2 * chroma.height),
    );
  }
}

function link(gl) {
  const program = gl.createProgram();
  for (const [type, source] of [
    [gl.VERTEX_SHADER, VERTEX_SHADER],
    [gl.FRAGMENT_SHADER, FRAGMENT_SHADER],
  ]) {
    const shader = gl.createShader(type);
    gl.shaderSource(shader, source);
    gl.compileShader(shader);
    gl.attachShader(program, shader);
  }
  gl.linkProgram(program);
  if (!gl.getProgramParameter(program, gl.LINK_STATUS)) {
    throw new Error(`the shaders cannot be linked: ${gl.getProgramInfoLog(program)}`);
  }
  return program;
}
