// Streams as one word, for example "remote-3": how the page and the meeting talk about them.

export const nameOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

// The stream with this name; undefined when there can be none.
export function streamNamed(name) {
  const [, type, index] = /^(local|remote|content)-(\d{1,2})$/.exec(name) ?? [];
  return type && { type, streamIndex: Number(index) };
}
