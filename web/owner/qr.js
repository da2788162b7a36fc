// A QR code's image in other forms. The service makes small PNG images; these are for walls and printers.

const LARGE = 1024; // pixels, at least

function pixelsOf(image) {
  const canvas = document.createElement('canvas');
  canvas.width = image.naturalWidth;
  canvas.height = image.naturalHeight;
  const context = canvas.getContext('2d');
  context.drawImage(image, 0, 0);
  const {data} = context.getImageData(0, 0, canvas.width, canvas.height);
  return (x, y) => data[4 * (y * canvas.width + x)] < 128;
}

/**
 * Reads the code's modules off its image, which has loaded: {size, margin, isDark(column, row)}, counted in modules.
 * Null when it can't be read, as in a browser that hands out altered pixels.
 */
export function readModules(image) {
  const width = image.naturalWidth;
  const isDark = pixelsOf(image);
  // The corner's square begins where the first dark pixel of the diagonal is, and is seven modules wide.
  let edge = 0;
  while (edge < width && !isDark(edge, edge)) edge += 1;
  let end = edge;
  while (end < width && isDark(end, edge)) end += 1;
  const unit = (end - edge) / 7;
  const margin = edge / unit;
  const size = width / unit - 2 * margin;
  if (unit < 1 || ![unit, margin, size].every(Number.isInteger) || (size - 17) % 4 !== 0) return null;
  const at = (column, row) => [edge + column * unit, edge + row * unit];
  for (let row = 0; row < size; row += 1) {
    for (let column = 0; column < size; column += 1) {
      const [x, y] = at(column, row);
      if (isDark(x, y) !== isDark(x + unit - 1, y + unit - 1)) return null;
    }
  }
  return {size, margin, isDark: (column, row) => isDark(...at(column, row))};
}

/** Calls `draw(column, row, length)` for each run of dark modules in a row. */
function forEachRun({size, isDark}, draw) {
  for (let row = 0; row < size; row += 1) {
    let begin = 0;
    for (let column = 0; column <= size; column += 1) {
      if (column < size && isDark(column, row)) continue;
      if (column > begin) draw(begin, row, column - begin);
      begin = column + 1;
    }
  }
}

export function toSvg(modules) {
  const {size, margin} = modules;
  const whole = size + 2 * margin;
  let path = '';
  forEachRun(modules, (column, row, length) => {
    path += `M${column + margin} ${row + margin}h${length}v1h-${length}z`;
  });
  return new Blob([`<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${whole} ${whole}" width="${whole * 8}" `
    + `height="${whole * 8}" shape-rendering="crispEdges"><path fill="#fff" d="M0 0h${whole}v${whole}H0z"/>`
    + `<path d="${path}"/></svg>\n`], {type: 'image/svg+xml'});
}

/** A PNG image that is large enough to print; of a code that can't be read, the image as it is. */
export function toPng(image, modules) {
  const canvas = document.createElement('canvas');
  const whole = modules ? modules.size + 2 * modules.margin : image.naturalWidth;
  const unit = modules ? Math.ceil(LARGE / whole) : 1;
  canvas.width = whole * unit;
  canvas.height = whole * unit;
  const context = canvas.getContext('2d');
  if (modules) {
    context.fillStyle = '#fff';
    context.fillRect(0, 0, canvas.width, canvas.height);
    context.fillStyle = '#000';
    forEachRun(modules, (column, row, length) =>
      context.fillRect((column + modules.margin) * unit, (row + modules.margin) * unit, length * unit, unit));
  } else {
    context.drawImage(image, 0, 0);
  }
  return new Promise((resolve) => { canvas.toBlob(resolve, 'image/png'); });
}

/** Has the browser store `blob`. */
export function save(blob, name) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}
