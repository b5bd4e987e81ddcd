// Times an npm HL7 package on the message in the file that is named: FILE PACKAGE encode|fill|decode. Prints the median
// nanoseconds of one call.
'use strict';

const fs = require('fs');

const simple = require('simple-hl7');
const medplum = require('@medplum/core');

const ROUND = 2e6; // nanoseconds; long enough for the clock
const ROUNDS = 100;
const [, , file, packageName, measure] = process.argv;

let sink = 0; // what is measured is used, so that it cannot be left out

function timed(work, count) {
  const start = process.hrtime.bigint();
  for (let i = 0; i < count; i++) {
    sink += work();
  }
  return Number(process.hrtime.bigint() - start);
}

// The median time of one call over many rounds.
function median(work) {
  let count = 10;
  timed(work, 2000); // the compiler's part
  while (timed(work, count) < ROUND / 2) {
    count *= 2;
  }
  const times = Array.from({ length: ROUNDS }, () => timed(work, count) / count);
  return times.sort((a, b) => a - b)[ROUNDS / 2];
}

const text = fs.readFileSync(file, 'latin1');
const lines = text.split('\r').filter((line) => line);
// Plain values: fields of each segment, each an array of components.
const plain = lines.map((line) => line.split('|')).map(([name, ...fields]) =>
  ({ name, fields: (name === 'MSH' ? fields.slice(1) : fields).map((field) => field.split('^')) }));

function buildSimple() {
  const message = new simple.Message();
  for (const { name, fields } of plain) {
    const segment = name === 'MSH' ? message.header : message.addSegment(name);
    for (const field of fields) {
      segment.addField(field);
    }
  }
  return message;
}

function buildMedplum() {
  const context = new medplum.Hl7Context();
  return new medplum.Hl7Message(plain.map(({ name, fields }) => {
    const head = name === 'MSH' ? [[[name]], [[context.getMsh2()]]] : [[[name]]];
    return new medplum.Hl7Segment(
      [...head, ...fields.map((field) => [field])].map((field) => new medplum.Hl7Field(field, context)), context);
  }), context);
}

function check(built) {
  if (built.toString().replace(/\r$/, '') !== lines.join('\r')) {
    throw new Error(`the package builds another message: ${built}`);
  }
  return built;
}

const simpleMessage = check(buildSimple());
const medplumMessage = check(buildMedplum());
const parser = new simple.Parser({ segmentSeperator: '\r' });

const measures = {
  'simple-hl7': {
    encode: () => simpleMessage.toString().length,
    fill: () => buildSimple().toString().length,
    decode: () => parser.parse(text).segments.length,
  },
  '@medplum/core': {
    encode: () => medplumMessage.toString().length,
    fill: () => buildMedplum().toString().length,
    decode: () => medplum.Hl7Message.parse(text).segments.length,
  },
};
process.stdout.write(`${median(measures[packageName][measure])}\n`);
if (sink === 0) {
  throw new Error('nothing was measured');
}
