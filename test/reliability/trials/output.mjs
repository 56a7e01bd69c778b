export const name = 'output',
  tried = '',
  unit = '',
  short = 1,
  long = 1;
export async function run() {
  throw new Error('none');
}
