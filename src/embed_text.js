'use strict';

// embed_text.js HEADER FILE...: writes a C++ header with the bytes of each text file as an array
// that is named after the file's path. Keep to the syntax of the oldest supported Node.
const fs = require('fs');

const [header, ...files] = process.argv.slice(2);
const arrays = files.map((file) => {
  const name = file.replace(/\.[^./]*$/, '').replace(/[^A-Za-z0-9]/g, '_');
  const bytes = [...fs.readFileSync(file)];
  if (bytes.some((byte) => byte > 127)) throw new Error(`${file} is not ASCII`);
  return `constexpr char ${name}[] = {${bytes.join(',')}};\n`;
});
fs.writeFileSync(
  header,
  `#pragma once\n\nnamespace kiv {\nnamespace {\n\n${arrays.join('')}\n}\n}\n`,
);
