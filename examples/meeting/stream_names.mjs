// The names of streams in messages between the page and the meeting, for example "remote-3".

export const nameOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

// The stream with this name; undefined for an invalid name.
export function streamNamed(name) {
  const [, type, index] = /^(local|remote|content)-(\d{1,2})$/.exec(name) ?? [];
  return type && { type, streamIndex: Number(index) };
}
