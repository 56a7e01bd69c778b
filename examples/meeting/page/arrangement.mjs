// The places of tiles on the stage. Every function returns a list of { x, y, width, height } in
// pixels.

const GAP = 10;
const ASPECT = 16 / 9;
const STRIP_SHARE = 0.2; // of the stage's width or height, for the small tiles beside a large one
const LEAST_STRIP = 90;

const fit = (width, height) => Math.max(0, Math.min(width, height * ASPECT));

// `count` equal tiles, as large as possible, in the middle of the stage.
export function gridOf(count, width, height) {
  let best = { size: -1 };
  for (let columns = 1; columns <= count; columns++) {
    const rows = Math.ceil(count / columns);
    const size = fit((width - GAP * (columns - 1)) / columns, (height - GAP * (rows - 1)) / rows);
    if (size > best.size) best = { size, columns, rows };
  }
  const tile = { width: Math.floor(best.size), height: Math.floor(best.size / ASPECT) };
  const used = (many, one) => many * one + (many - 1) * GAP;
  const top = (height - used(best.rows, tile.height)) / 2;
  return Array.from({ length: count }, (_, place) => {
    const row = Math.floor(place / best.columns);
    const inRow = Math.min(best.columns, count - row * best.columns);
    const left = (width - used(inRow, tile.width)) / 2;
    return {
      x: Math.round(left + (place % best.columns) * (tile.width + GAP)),
      y: Math.round(top + row * (tile.height + GAP)),
      ...tile,
    };
  });
}

// The first of `count` tiles large, the others small beside it, or below it on a narrow stage.
export function focusOf(count, width, height) {
  if (count < 2) return gridOf(count, width, height);
  const isWide = width > height * 1.2;
  const strip = Math.max(LEAST_STRIP, (isWide ? width : height) * STRIP_SHARE);
  const largeArea = isWide ? [width - strip - GAP, height] : [width, height - strip - GAP];
  const [large] = gridOf(1, ...largeArea);
  const small = gridOf(count - 1, ...(isWide ? [strip, height] : [width, strip]));
  const moved = small.map(({ x, y, ...size }) =>
    isWide ? { x: x + width - strip, y, ...size } : { x, y: y + height - strip, ...size },
  );
  return [large, ...moved];
}
