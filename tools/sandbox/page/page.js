'use strict';

// Names and texts from the bus become text nodes and attributes. No function of this file parses markup.

const SVG = 'http://www.w3.org/2000/svg';
const ROW = 28;
const MOST_BLOCKS = 60000;
const MOST_OPEN = 500;
const LANES = ['Application', 'Library', 'Bus', 'Server'];
const [APPLICATION, LIBRARY, BUS, SERVER] = LANES.keys();

const $ = id => document.getElementById(id);

function make(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
  node.append(...children.filter(child => child !== null && child !== undefined));
  return node;
}
const h = (name, attributes = {}, ...children) => make(document.createElement(name), attributes, children);
const s = (name, attributes = {}, ...children) => make(document.createElementNS(SVG, name), attributes, children);
const text = (x, y, content, kind = '') => s('text', { x, y, class: kind }, content);
const cut = (content, most) => content.length > most ? content.slice(0, Math.max(Math.floor(most) - 1, 0)) + '…' : content;

// --- States and blocks. A block is a call, an event, or a line of a log. ---

const states = { ended: false };
const rawLines = [];
const blocks = [];
const openBlocks = [];      // calls whose method has no answer yet
const messages = new Map(); // messages without an answer, by number
const clients = new Map();  // client ids by unique bus names
let missed = 0;

// Returns GVariant text with bytes in hexadecimal and without types. Six bytes among the arguments are a MAC address.
function readable(variant) {
  return variant
    .replace(/\[byte 0x[0-9a-f]{2}(?:, 0x[0-9a-f]{2})*\]/g, bytes => `[${bytes.match(/(?<=0x)../g).join(' ')}]`)
    .replace(/@[a-z{}()]+ (?=\[)/g, '')
    .replace(/\b(?:byte|u?int(?:16|32|64)|double|objectpath|signature|handle) (?=[-\d'])/g, '')
    .replace(/\b0x..(?:, 0x..){5}\b/g, bytes => bytes.replaceAll('0x', '').replaceAll(', ', ':'))
    .replace(/,\)$/, ')');
}
const oneValue = variant => variant.replace(/^\((.*)\)$/s, '$1');
const shortBytes = variant => readable(variant).replace(/\[((?:[0-9a-f]{2} ){12})[0-9a-f ]+\]/g, '[$1…]');

const timeOf = line => (line.us ?? (line.ms ?? 0) * 1000) / 1000;

function newBlock(kind, line, more) {
  const block = { kind, start: timeOf(line), end: null, name: '', parts: [], failed: false, open: false, ...more };
  blocks.push(block);
  if (blocks.length > MOST_BLOCKS) blocks.splice(0, blocks.length - MOST_BLOCKS);
  return block;
}

// For a function, the library asks the bus whether the server runs, asks the server for the client's id, asks the bus again, and
// calls the method. For the second method of a function, it does not ask for the id. To start the server, it asks only for the
// id. A recording has no questions to the bus.
const findOpen = (sender, ...stages) => stages
  .map(stage => openBlocks.find(block => block.sender === sender && block.stage === stage)).find(Boolean);

function beginBlock(line) {
  const block = newBlock('call', line, { sender: line.sender, stage: '', arguments: '', result: null });
  openBlocks.push(block);
  if (openBlocks.length > MOST_OPEN) openBlocks.shift();
  return block;
}

function endBlock(block, line, failure) {
  block.end = timeOf(line);
  if (failure) Object.assign(block, { failed: true, result: failure });
  if (openBlocks.includes(block)) openBlocks.splice(openBlocks.indexOf(block), 1);
}

const asksBus = line => line.method === 'NameHasOwner';

function addPart(block, line, from, to) {
  const part = { from, to, line, time: timeOf(line), answer: null };
  block.parts.push(part);
  messages.set(line.call ?? line.event, { block, part });
}

function addCall(line) {
  let block;
  if (asksBus(line)) {
    block = findOpen(line.sender, 'second', 'alone') ?? beginBlock(line);
    block.stage = block.stage === 'second' ? 'second?' : 'first?';
  } else if (line.method === 'check_dbus_connection') {
    block = findOpen(line.sender, 'id', 'alone') ?? beginBlock(line);
    block.stage = block.stage === 'id' ? 'id?' : 'alone?';
  } else {
    block = findOpen(line.sender, 'method', 'second', 'id', 'alone') ?? beginBlock(line);
    Object.assign(block, { stage: 'method?', name: line.method, arguments: line.arguments });
    adoptLogs(block);
  }
  addPart(block, line, LIBRARY, asksBus(line) ? BUS : SERVER);
}

function addAnswer(line) {
  const found = messages.get(line.answer);
  if (!found) return;
  messages.delete(line.answer);
  const { block, part } = found;
  part.answer = line;
  const failure = line.error ? `${line.error}: ${line.message}` : '';
  if (block.kind === 'event') {
    block.end = timeOf(line);
    Object.assign(block, { failed: Boolean(failure), result: failure || null });
  } else if (block.stage === 'method?') {
    block.result = line.values ?? null;
    endBlock(block, line, failure);
  } else {
    if (part.line.method === 'check_dbus_connection' && !failure) clients.set(block.sender, readable(line.values).slice(2, -2));
    if (failure || asksBus(part.line) && /false/.test(line.values)) endBlock(block, line, failure || 'no server runs');
    else block.stage = { 'first?': 'id', 'id?': 'second', 'alone?': 'alone', 'second?': 'method' }[block.stage];
  }
}

function addEvent(line) {
  const block = newBlock('event', line, { name: line.method, arguments: line.arguments, sender: line.client, result: null });
  block.decoded = line.decoded ?? line.method;
  addPart(block, line, SERVER, LIBRARY);
}

// The library's functions that log on behalf of the called function.
const INNER = new Set(['GetProxy', 'GetWhetherKivDisabled', 'MethodCall', 'm_GetProxyObj', 'm_IsExistedBusname',
  'm_OnbusAcquired', 'm_OnnameAcquired']);
const levelOf = line => line.log.match(/^\S+ ([DIWEF]) /)?.[1] ?? '';
const FRESH = 250; // milliseconds by which a line may precede or follow its call
const RECENT = 24; // blocks between a line and its call

function attach(block, log) {
  block.parts.push(log);
  if (levelOf(log.line) !== 'E') return;
  if (!block.name && !INNER.has(log.line.function)) {
    block.name = log.line.function;
    adoptLogs(block);
  }
  // The line about the first attempt may come after the method's call, because logs come another way.
  block.failed ||= openBlocks.includes(block) && block.stage === 'method?' && log.line.function === block.name &&
    !log.line.text.endsWith('request launch kiv-service');
}

function adoptLogs(block) {
  const fits = ({ kind, name, start }) => kind === 'log' && (name === block.name || INNER.has(name)) && block.start - start < FRESH;
  for (const own of blocks.slice(-RECENT).filter(fits)) {
    attach(block, own.parts[0]);
    blocks.splice(blocks.indexOf(own), 1);
  }
  block.parts.sort((a, b) => a.time - b.time);
}

function addLog(line) {
  const log = { line, time: timeOf(line), log: true };
  const near = blocks.slice(-RECENT).reverse().filter(block =>
    block.kind === 'call' && (openBlocks.includes(block) || log.time - block.end < FRESH));
  const block = line.function && (near.find(b => b.name === line.function) ??
    near.find(b => INNER.has(line.function) || !b.name));
  if (block) return attach(block, log);
  const own = newBlock('log', line, { name: line.function ?? '', end: timeOf(line) });
  own.parts.push(log);
  own.failed = levelOf(line) === 'E';
}

// A bus that was started again gives the same unique names to other connections.
function loseBus() {
  clients.clear();
  for (const block of openBlocks.splice(0)) Object.assign(block, { failed: true, result: 'the bus has gone' });
}

function feed(raw) {
  const line = JSON.parse(raw);
  if ('missed' in line) missed += line.missed;
  else if (!('ms' in line)) {
    Object.assign(states, line);
    drawStatesLater();
    if (line.bus === 'down') loseBus();
  } else {
    rawLines.push(raw);
    if (rawLines.length > 4 * MOST_BLOCKS) rawLines.splice(0, MOST_BLOCKS);
    if ('answer' in line) addAnswer(line);
    else if ('event' in line) addEvent(line);
    else if ('log' in line) addLog(line);
    else addCall(line);
  }
  drawRowsLater();
}

// --- The home ---

// Draws at once, but not more often than a screen shows. No animation frame is awaited, because a busy browser delays its frames,
// and a hidden page has none.
const notTooOften = draw => {
  let due = false, last = 0;
  return () => {
    if (due) return;
    due = true;
    setTimeout(() => { due = false; draw(); last = performance.now(); }, last + 16 - performance.now());
  };
};
const drawStatesLater = notTooOften(drawStates);
const drawRowsLater = notTooOften(drawRows);

const modeName = mode => ({ 80: 'surround', 81: 'multi-room' })[mode] ?? mode;
const allSpeakers = () => states.home ? [...states.home.speakers, ...states.home.discovered].sort((a, b) => a.node - b.node) : [];

function drawStates() {
  const { home, about = {} } = states;
  const chip = (content, kind = '') => h('li', { class: kind }, content);
  const up = (state, content) => state && chip(`${content} ${state}`, state === 'up' ? 'on' : 'off');
  const chips = states.ended ? [chip('The sandbox has ended', 'off')] : [up(states.bus, 'Bus'), up(states.server, 'Server')];
  if (about.recording) chips.push(chip(`Recording ${about.recording}`));
  if (home) {
    const preselected = home.tavrinPreSelected ? ', multi-room preselected' : '';
    chips.push(chip(`Mode ${modeName(home.settingMode)}`), chip(`Screen ${modeName(home.tavrinUiMode)}${preselected}`),
      chip(`${home.surroundChannels} surround channels`), chip(home.receiverHasAtmos ? 'Atmos receiver' : 'No Atmos'),
      chip(`${home.clients.length} client${home.clients.length === 1 ? '' : 's'}`));
    const faults = Object.keys(home.faults).length;
    if (faults) chips.push(chip(`${faults} fault${faults === 1 ? '' : 's'}`, 'off'));
  }
  $('states').replaceChildren(...chips.filter(Boolean));
  $('doctor').textContent = states.advice && !states.ended ? `Doctor: ${states.advice}` : '';
  $('left').hidden = !home && !about.live;
  document.querySelector('main').classList.toggle('wide', $('left').hidden);
  $('hands').hidden = !about.live || states.ended;
  $('save-pcap')?.toggleAttribute('hidden', about.live === undefined || states.ended);
  if (home) drawHome(home);
  fillHands();
}

function drawSpeaker(speaker, x, y) {
  const sub = /sub/i.test(speaker.type);
  const connected = speaker.connection !== 'none';
  const kinds = ['speaker', speaker.active && 'plays', !connected && 'away', $('speaker').value === speaker.mac && 'chosen'];
  const says = [speaker.name, speaker.type, speaker.mac, connected ? `volume ${speaker.volume}` : 'not connected',
    speaker.active && `plays on channel ${speaker.channel}`, speaker.test && 'test tone',
    speaker.connection === 'direct' && 'direct'].filter(Boolean).join(', ');
  const top = sub ? 24 : 8;
  const group = s('g', { class: kinds.filter(Boolean).join(' '), transform: `translate(${x} ${y})` },
    s('title', {}, says),
    s('rect', { class: 'case', x: 27, y: top, width: 40, height: 64 - top, rx: 5 }),
    s('circle', { class: 'cone', cx: 47, cy: sub ? 44 : 48, r: sub ? 14 : 11 }),
    sub ? null : s('circle', { class: 'cone', cx: 47, cy: 24, r: 6 }),
    s('rect', { class: 'track', x: 12, y: 71, width: 54, height: 6, rx: 3 }),
    s('rect', { class: 'level', x: 12, y: 71, width: connected ? 54 * speaker.volume / 100 : 0, height: 6, rx: 3 }),
    text(86, 78, connected ? speaker.volume : '–', 'small dim end'), text(47, 96, cut(speaker.name, 14), 'small middle'));
  if (!connected) group.append(text(47, 107, 'not connected', 'small dim middle'));
  if (speaker.active) {
    group.append(s('path', { class: 'wave', d: 'M21 26Q13 38 21 50M73 26Q81 38 73 50' }),
      s('rect', { class: 'badge', x: 60, y: 0, width: 32, height: 16, rx: 8 }),
      text(76, 12, `ch ${speaker.channel}`, 'small middle accent'));
  }
  if (speaker.test) group.append(text(12, 22, '♪', 'title accent'));
  if (speaker.connection === 'direct') group.append(text(6, 12, 'direct', 'small accent'));
  // On the keyboard, the list of speakers does the same.
  group.addEventListener('click', () => { $('speaker').value = speaker.mac; drawStates(); });
  return make(group, { role: 'img', 'aria-label': says, 'data-mac': speaker.mac }, []);
}

function drawHome(home) {
  const width = Math.max($('left').clientWidth, 300);
  const column = (width - 9) / 2, across = Math.floor((column - 8) / 94);
  const speakers = allSpeakers();
  const rooms = home.groups
    .map((name, index) => ({ name, speakers: speakers.filter(speaker => speaker.group === index + 1) }))
    .filter(room => room.speakers.length);
  const plays = speakers.filter(speaker => speaker.active).length;
  const parts = [s('rect', { class: 'room', x: 1, y: 1, width: width - 2, height: 108, rx: 10 }),
    s('rect', { class: 'screen', x: 22, y: 20, width: 112, height: 62, rx: 4 }), s('path', { class: 'screen', d: 'M58 90h40' }),
    text(78, 55, 'TV', 'title middle'),
    text(156, 36, plays ? `Sound on ${plays} speaker${plays === 1 ? '' : 's'}, ${modeName(home.settingMode)}`
      : 'Sound on the TV itself', 'title'),
    text(156, 58, `Receiver ${home.receiverHasAtmos ? 'with' : 'without'} Dolby Atmos`,
      home.receiverHasAtmos ? 'accent' : 'dim')];
  home.soundbars.slice(0, 2).forEach((soundbar, index) => parts.push(
    s('rect', { class: 'case', x: 156, y: 72 + index * 18, width: 40, height: 11, rx: 5 }),
    text(206, 82 + index * 18, cut(`${soundbar.name}: mode ${soundbar.soundMode}`, (width - 216) / 6.2), 'small')));
  const bottoms = [118, 118];
  for (const room of rooms) {
    const side = bottoms[0] <= bottoms[1] ? 0 : 1;
    const x = side * (column + 9), y = bottoms[side];
    const height = 34 + Math.ceil(room.speakers.length / across) * 116;
    const kind = room.speakers.some(speaker => speaker.active) ? 'room plays' : 'room';
    parts.push(s('rect', { class: kind, x: x + 1, y, width: column - 2, height, rx: 10 }),
      text(x + 14, y + 22, cut(room.name, (column - 28) / 9.6), 'title'));
    room.speakers.forEach((speaker, index) => parts.push(
      drawSpeaker(speaker, x + 4 + index % across * 94, y + 34 + Math.floor(index / across) * 116)));
    bottoms[side] = y + height + 9;
  }
  if (!rooms.length) parts.push(text(width / 2, 150, 'No speakers in this home', 'dim middle'));
  const height = Math.max(...bottoms, 170);
  make($('home'), { viewBox: `0 0 ${width} ${height}` }, []).replaceChildren(...parts);
}

// --- The controls: each runs a command of "kiv-sandbox control" ---

async function control(...words) {
  const said = $('said');
  const quoted = words.map(word => /^[\w.:*-]+$/.test(word) ? word : `'${word.replaceAll("'", `'\\''`)}'`);
  said.className = '';
  said.textContent = `$ kiv-sandbox control ${quoted.join(' ')}`;
  let outcome = { exitCode: -1, output: 'the sandbox does not answer' };
  try {
    const response = await fetch('control', { method: 'POST', body: JSON.stringify(words) });
    if (response.ok) outcome = await response.json();
  } catch { /* The outcome says that the sandbox does not answer. */ }
  said.classList.toggle('failed', outcome.exitCode !== 0);
  if (outcome.exitCode !== 0) said.textContent += `\n${outcome.output.trim()}`;
}

function setOptions(select, options) {
  const wanted = JSON.stringify(options);
  if (select.dataset.options === wanted) return;
  const before = select.value;
  select.dataset.options = wanted;
  select.replaceChildren(...options.map(([value, content, title = '']) => h('option', { value, title }, content)));
  if (options.some(([value]) => value === before)) select.value = before;
}

const chosenSpeaker = () => allSpeakers().find(speaker => speaker.mac === $('speaker').value);

function fillHands() {
  const { about = {}, home } = states;
  setOptions($('speaker'), allSpeakers().map(speaker => [speaker.mac, speaker.name]));
  setOptions($('method'), [['*', 'every method'], ...(about.methods ?? []).map(method => [method, method])]);
  const scenarios = (about.scenarios ?? '').matchAll(/^(\S+) +(.*)$/gm);
  setOptions($('scenario'), [...scenarios].map(([, name, description]) => [name, name, description]));
  const speaker = chosenSpeaker();
  const connected = speaker && speaker.connection !== 'none';
  $('plug').textContent = connected ? 'Unplug' : 'Plug in';
  $('plug').disabled = !speaker;
  $('volume').disabled = !connected;
  if (speaker && document.activeElement !== $('volume')) $('volume').value = speaker.volume;
  $('volume-shown').textContent = connected ? $('volume').value : '';
  $('atmos').textContent = home?.receiverHasAtmos ? 'Disconnect Atmos' : 'Connect Atmos';
  $('faults').replaceChildren(...Object.entries(home?.faults ?? {})
    .map(([method, fault]) => h('li', {}, `${method} ${JSON.stringify(fault)}`)));
}

// --- The conversation ---

let rows = [];
let filter = '';
let paused = null; // the number of shown blocks, or null
let follows = true;
let chosen = null;
let hovered = null;

const showsBlock = block => !filter || [block.name, block.decoded, block.sender, clients.get(block.sender),
  ...block.parts.map(part => part.line.log ?? part.line.method)]
  .some(content => content?.toLowerCase().includes(filter));

function listRows() {
  const shown = paused === null ? blocks : blocks.slice(0, paused);
  rows = [];
  for (const block of shown) {
    if (!showsBlock(block)) continue;
    rows.push({ block });
    if (block.open) for (const part of block.parts) rows.push({ block, part });
  }
}

const lanes = width => [0, 1, 2, 3].map(index => 74 + (width - 74 - 96) / 3 * index);
const logText = part => part.line.function ? `${levelOf(part.line)} ${part.line.function}: ${part.line.text}` : part.line.log;

function duration(block) {
  if (block.kind === 'log') return '';
  const took = block.end - block.start;
  return block.end === null ? '…' : `${took.toFixed(took < 10 ? 2 : 0)} ms`;
}

function labelOf(block) {
  if (block.kind === 'log') return logText(block.parts[0]);
  const who = clients.size > 1 ? `[${clients.get(block.sender) ?? block.sender}] ` : '';
  if (block.kind === 'event') return `${who}${block.decoded}${block.failed ? ` ✕ ${block.result}` : ''}`;
  const result = block.failed ? ` ✕ ${block.result ?? 'no answer'}`
    : block.result === null ? '' : ` → ${oneValue(shortBytes(block.result))}`;
  return `${who}${block.name || 'call'}${block.arguments ? shortBytes(block.arguments) : ''}${result}`;
}

function partLabel({ line, answer }) {
  const result = !answer ? '' : answer.error ? ` ✕ ${answer.error}` : ` → ${oneValue(shortBytes(answer.values))}`;
  return `${line.method}${shortBytes(line.arguments)}${result}`;
}

// Draws an arrow at this height, and below it the arrow of an answer, if there is one.
function arrow(from, to, y, kind, answered) {
  const step = to > from ? 6 : -6;
  const tip = (x, way, at) => s('path', { class: `tip ${kind}`, d: `M${x} ${at}l${-way} -3.5v7z` });
  const parts = [s('path', { class: `arrow ${kind}`, d: `M${from} ${y}H${to - step}` }), tip(to, step, y)];
  const back = s('path', { class: `arrow return ${kind}`, d: `M${to} ${y + 5}H${from + step}` });
  return answered ? [...parts, back, tip(from, -step, y + 5)] : parts;
}

function drawRow({ block, part }, y, width) {
  const x = lanes(width);
  const isLog = part ? part.log : block.kind === 'log';
  const failed = block.failed && (!part || part.answer?.error || isLog && levelOf(part.line) === 'E');
  const kind = failed ? 'failed' : part || isLog ? 'dim' : block.kind === 'event' ? 'event' : '';
  const [from, to] = part ? [part.from, part.to] : block.kind === 'event' ? [SERVER, APPLICATION] : [APPLICATION, SERVER];
  const label = part ? (part.log ? logText(part) : partLabel(part)) : labelOf(block);
  const start = isLog ? x[block.kind === 'log' && !block.name ? APPLICATION : LIBRARY] - 6 : x[Math.min(from, to)] + 8;
  const group = s('g', { transform: `translate(0 ${y})` },
    text(8, 18, (part ? part.time : block.start).toFixed(0), 'mono dim small'),
    text(start, isLog ? 18 : 14, cut(label, (width - 80 - start) / 7.25), `mono ${kind}`));
  if (!isLog) group.append(...arrow(x[from], x[to], 19, kind, part ? part.answer : block.end !== null));
  if (!part) group.append(text(width - 10, 18, duration(block), 'mono small dim end'));
  if (!part && block.kind !== 'log') group.append(text(46, 18, block.open ? '▾' : '▸', 'small dim'));
  return group;
}

const drawLanes = (width, height) => lanes(width).map(at => s('path', { class: 'lane', d: `M${at} 0V${height}` }));
const drawTitles = width => [s('rect', { class: 'head', x: -1, y: -1, width: width + 2, height: ROW }), text(8, 18, 'ms', 'small dim'),
  ...lanes(width).map((at, index) => text(at, 18, LANES[index], 'small title middle'))];

function drawRows() {
  listRows();
  const scroll = $('scroll');
  const { clientWidth: width, clientHeight: height } = scroll;
  if (!width) return;
  const below = Math.max(rows.length * ROW + ROW - height, 0);
  $('height').style.height = `${below}px`;
  if (follows && paused === null) scroll.scrollTop = below;
  const first = Math.max(Math.floor(scroll.scrollTop / ROW), 0);
  const visible = rows.slice(first, first + Math.ceil(height / ROW) + 1);
  const drawn = visible.map((row, index) => {
    const y = (first + index) * ROW - scroll.scrollTop + ROW;
    const isChosen = chosen && row.block === chosen.block && row.part === chosen.part;
    const back = s('rect', { class: isChosen ? 'back chosen' : 'back', x: 0, y, width, height: ROW, 'data-row': first + index });
    const group = drawRow(row, y, width);
    group.setAttribute('pointer-events', 'none');
    return [back, group];
  });
  $('rows').replaceChildren(...drawn.map(([back]) => back), ...drawLanes(width, height), ...drawn.map(([, group]) => group),
    ...drawTitles(width));
  const news = paused === null ? '' : `, ${blocks.length - paused} new`;
  const gap = missed ? `, ${missed} lines missed` : '';
  $('count').textContent = `${rows.filter(row => !row.part).length} of ${blocks.length} shown${news}${gap}`;
  showDetails();
}

function showDetails() {
  const row = hovered ?? chosen;
  if (!row) {
    const advice = 'Point at a call or an event to see what it carries. Enter or a click unfolds it.';
    $('details').replaceChildren(h('span', { class: 'dim' }, advice));
    return;
  }
  const { block, part } = row;
  const lines = [];
  const say = (title, content, kind = '') => {
    if (content) lines.push(h('b', {}, title), ' ', h('span', { class: kind }, content), '\n');
  };
  const isError = log => levelOf(log.line) === 'E';
  const all = block.parts.filter(each => each.log);
  const logs = part ? (part.log ? [part] : []) : [...all.filter(isError), ...all.filter(log => !isError(log))];
  const [line, answer] = part ? [part.line, part.answer] : [block, block.parts.findLast(each => !each.log)?.answer];
  if (!part || !part.log) {
    const title = part ? 'Message' : { event: 'Event', log: 'Function', call: 'Call' }[block.kind];
    say(title, part ? line.method : block.decoded ?? block.name);
    say('From', clients.has(block.sender) ? `${clients.get(block.sender)} (${block.sender})` : block.sender);
    say('Arguments', line.arguments && readable(line.arguments));
    say('Result', answer?.values && readable(answer.values));
    say('Error', block.failed && !part ? block.result : answer?.error && `${answer.error}: ${answer.message}`, 'failed');
    if (answer?.found && block.kind === 'call') {
      say('Doctor', answer.found, 'failed');
      say('   do', answer.advice);
    }
    if (!part) say('Took', block.kind === 'log' ? '' : duration(block), 'dim');
  }
  for (const log of logs) {
    say('Log', log.line.log, isError(log) ? 'failed' : 'dim');
    say('   means', log.line.meaning);
    say('   do', log.line.advice);
  }
  $('details').replaceChildren(...lines);
}

function unfold(row) {
  if (row.block.kind !== 'log') row.block.open = !row.block.open;
  drawRowsLater();
}

function choose(index) {
  const at = Math.min(Math.max(index, 0), rows.length - 1);
  if (at < 0) return;
  chosen = rows[at];
  const scroll = $('scroll');
  const top = at * ROW;
  if (top < scroll.scrollTop) scroll.scrollTop = top;
  if (top + 2 * ROW > scroll.scrollTop + scroll.clientHeight) scroll.scrollTop = top + 2 * ROW - scroll.clientHeight;
  follows = at === rows.length - 1;
  drawRowsLater();
}

function onRowKey(event) {
  const at = chosen ? rows.findIndex(row => row.block === chosen.block && row.part === chosen.part) : rows.length;
  const page = Math.floor($('scroll').clientHeight / ROW) - 2;
  const last = rows.length - 1;
  const to = { ArrowUp: at - 1, ArrowDown: at + 1, PageUp: at - page, PageDown: at + page, Home: 0, End: last }[event.key];
  if (to !== undefined) choose(to);
  else if (event.key === 'Enter' && chosen) unfold(chosen);
  else return;
  event.preventDefault();
}

function setPaused(on) {
  paused = on ? blocks.length : null;
  $('pause').setAttribute('aria-pressed', String(on));
  drawRowsLater();
}

// --- Saving ---

const page = document.documentElement.cloneNode(true);
const data = $('data');
let code = $('code')?.textContent ?? '';

function save(name, type, content) {
  const link = h('a', { href: URL.createObjectURL(new Blob([content], { type })), download: name });
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

const css = () => [...document.styleSheets].flatMap(sheet => [...sheet.cssRules]).map(rule => rule.cssText).join('\n');

function wholeSvg() {
  listRows();
  const width = 1200, gap = 20;
  const home = states.home ? $('home').cloneNode(true) : null;
  const homeHeight = home ? Number(home.getAttribute('viewBox').split(' ')[3]) + gap : 0;
  if (home) make(home, { x: gap, y: gap, width: home.getAttribute('viewBox').split(' ')[2], height: homeHeight - gap }, []);
  const height = homeHeight + (rows.length + 1) * ROW + 2 * gap;
  const conversation = s('g', { transform: `translate(${gap} ${homeHeight + gap})` },
    ...drawLanes(width - 2 * gap, height - homeHeight - 2 * gap), ...drawTitles(width - 2 * gap),
    ...rows.map((row, index) => drawRow(row, (index + 1) * ROW, width - 2 * gap)));
  const back = s('rect', { width, height, class: 'sheet' });
  const whole = s('svg', { viewBox: `0 0 ${width} ${height}`, width, height }, s('style', {}, css()), back, home, conversation);
  return new XMLSerializer().serializeToString(whole);
}

function wholeHtml() {
  const copy = page.cloneNode(true);
  const { home, server, bus, advice } = states;
  const kept = { states: [{ about: { recording: 'saved from a page' } }], lines: rawLines };
  if (home) kept.states.push({ home }, { server }, { bus, advice });
  copy.querySelectorAll('link, script, style, #save-pcap').forEach(node => node.remove());
  copy.querySelector('head').append(h('style', {}, css()));
  const json = JSON.stringify(kept).replace(/</g, '\\u003c');
  copy.querySelector('body').append(h('script', { type: 'application/json', id: 'data' }, json), h('script', { id: 'code' }, code));
  return '<!doctype html>\n' + copy.outerHTML;
}

// --- The beginning ---

function begin() {
  const hands = {
    plug: () => control('plug', $('speaker').value, chosenSpeaker()?.connection === 'none' ? 'on' : 'off'),
    atmos: () => control('atmos', states.home?.receiverHasAtmos ? 'off' : 'on'),
    push: () => control('event', $('event-id').value, ...($('event-data').value.trim() ? [$('event-data').value] : [])),
    'set-fault': () => control('fault', $('method').value, $('fault').value),
    'set-bus-fault': () => control('bus-fault', $('bus-fault').value),
    apply: () => control('apply', $('scenario').value),
    pause: () => setPaused(paused === null),
    newest: () => { setPaused(false); follows = true; drawRowsLater(); },
    'save-svg': () => save('kiv-sandbox.svg', 'image/svg+xml', wholeSvg()),
    'save-html': () => save('kiv-sandbox.html', 'text/html', wholeHtml()),
  };
  for (const [id, act] of Object.entries(hands)) $(id).addEventListener('click', act);
  for (const button of document.querySelectorAll('[data-words]')) {
    button.addEventListener('click', () => control(...button.dataset.words.split(' ')));
  }
  $('hands').addEventListener('submit', event => event.preventDefault());
  $('volume').addEventListener('input', () => { $('volume-shown').textContent = $('volume').value; });
  $('volume').addEventListener('change', () => { control('volume', $('speaker').value, $('volume').value); $('volume').blur(); });
  $('speaker').addEventListener('change', drawStates);
  $('filter').addEventListener('input', () => { filter = $('filter').value.toLowerCase(); drawRowsLater(); });
  const scroll = $('scroll');
  scroll.addEventListener('scroll', () => {
    follows = scroll.scrollTop + scroll.clientHeight >= scroll.scrollHeight - ROW;
    drawRowsLater();
  });
  scroll.addEventListener('keydown', onRowKey);
  const rowAt = event => rows[event.target.dataset?.row];
  scroll.addEventListener('click', event => {
    const row = rowAt(event);
    if (row) { chosen = row; unfold(row); }
  });
  scroll.addEventListener('mousemove', event => { hovered = rowAt(event) ?? null; showDetails(); });
  scroll.addEventListener('mouseleave', () => { hovered = null; showDetails(); });
  new ResizeObserver(drawRowsLater).observe(scroll);
  new ResizeObserver(drawStatesLater).observe($('left'));
  if (data) {
    const kept = JSON.parse(data.textContent);
    kept.states.map(state => JSON.stringify(state)).concat(kept.lines).forEach(feed);
  } else {
    const events = new EventSource('events');
    events.onopen = events.onerror = () => { states.ended = events.readyState !== EventSource.OPEN; drawStatesLater(); };
    events.onmessage = event => feed(event.data);
    fetch('page.js').then(response => response.text()).then(own => { code = own; });
  }
  drawStatesLater();
  drawRowsLater();
}

begin();
