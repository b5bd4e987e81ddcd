// Reads or composes one message with one of the npm packages. The request comes on standard input as JSON:
//   {"package": "simple-hl7" | "@medplum/core",
//    "text": message, "positions": [{segment, occurrence, field, repetition, component, subcomponent}...]}
// or, to compose, "segments": [{name, fields: {number: [[component...]...]}}...], a component being a text or an array
// of subcomponents. The answer is a JSON array of values, or the message. Each package is used as its users do.
'use strict';

const fs = require('fs');

const simple = require('simple-hl7');
const medplum = require('@medplum/core');

const HEADER = 'MSH';

function readSimple(text, positions) {
  const message = new simple.Parser({ segmentSeperator: '\r' }).parse(text);
  return positions.map((p) => {
    // The header's first two fields are not among its fields.
    const segment = p.segment === HEADER ? message.header : message.getSegments(p.segment)[p.occurrence - 1];
    const number = p.segment === HEADER ? p.field - 2 : p.field;
    if (p.repetition) {
      const repeated = segment.fields[number - 1].value[p.repetition - 1];
      return repeated.value[0][(p.component || 1) - 1].value[0];
    }
    if (!p.component) {
      return segment.getField(number);
    }
    const component = segment.fields[number - 1].value[0][p.component - 1];
    const divided = component !== undefined && Array.isArray(component.value[0]);
    return divided ? segment.getComponent(number, p.component, p.subcomponent || 1)
      : segment.getComponent(number, p.component);
  });
}

function readMedplum(text, positions) {
  const message = medplum.Hl7Message.parse(text);
  return positions.map((p) => {
    const segment = message.getAllSegments(p.segment)[p.occurrence - 1];
    if (!p.component) {
      return segment.getField(p.field).toString();
    }
    // Subcomponents and repetitions count from 0 here.
    const subcomponent = p.subcomponent ? p.subcomponent - 1 : undefined;
    return segment.getComponent(p.field, p.component, subcomponent, (p.repetition || 1) - 1);
  });
}

function lastField(fields) {
  return Math.max(0, ...Object.keys(fields).map(Number));
}

function composeSimple(segments) {
  const message = new simple.Message();
  for (const { name, fields } of segments) {
    const segment = name === HEADER ? message.header : message.addSegment(name);
    for (let number = name === HEADER ? 3 : 1; number <= lastField(fields); number++) {
      segment.addField(fields[number] ? new simple.Field(...fields[number]) : '');
    }
  }
  return message.toString();
}

function composeMedplum(segments) {
  const context = new medplum.Hl7Context();
  const makeField = (repetitions) => new medplum.Hl7Field(repetitions.map((components) =>
    components.map((component) => [].concat(component).join(context.subcomponentSeparator))), context);
  return new medplum.Hl7Message(segments.map(({ name, fields }) => {
    const made = [makeField([[name]])];
    if (name === HEADER) {
      made.push(makeField([[context.getMsh2()]]));
    }
    for (let number = made.length + (name === HEADER ? 1 : 0); number <= lastField(fields); number++) {
      made.push(makeField(fields[number] || [['']]));
    }
    return new medplum.Hl7Segment(made, context);
  }), context).toString();
}

const request = JSON.parse(fs.readFileSync(0, 'utf8'));
const isSimple = request.package === 'simple-hl7';
const answer = request.segments
  ? (isSimple ? composeSimple : composeMedplum)(request.segments)
  : (isSimple ? readSimple : readMedplum)(request.text, request.positions);
process.stdout.write(JSON.stringify(answer));
