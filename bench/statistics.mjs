// quantile([3, 1, 2], 0.5) is 2.
export function quantile(values, fraction) {
  const sorted = values.toSorted((a, b) => a - b);
  return sorted[Math.min(sorted.length - 1, Math.floor(fraction * sorted.length))];
}

export function median(values) {
  return quantile(values, 0.5);
}
