// How things are shown: elements made of texts, which stay texts whatever is in them. The first half of the page's one
// module; main.js follows it.

// The subject of an item by its name, and what the name means.
const SUBJECTS = [
    ['Board', /^(bsp|board|load|memory|swap|disk|processes|zombies|users|clock)/i],
    ['Network', /^(devm|net|wired|wifi|loopback|tcp|service_port|conf_(ip|dns|ntp))/i],
    ['Sound', /^(aud|sound|mic|speaker)/i],
    ['Screens', /^(vid|video|hdmi|screen|disp)/i],
    ['Camera', /^(camera|cam)/i],
    ['Call', /^(conf|call|sip|h323)/i],
];

const WORDS = {
    bsp: 'board', devm: 'device', aud: 'sound', conf: 'call settings', ft: '', awb: 'white balance', ae: 'exposure',
    Hw: 'hardware', sip: 'SIP', ldapserver: 'address book server', ap: 'access point', mic: 'microphone',
};

function subjectOf(name) {
    return SUBJECTS.find(([, pattern]) => pattern.test(name))?.[0] ?? 'Others';
}

function wordsOf(name) {
    const parts = name.replace(/([a-z])([A-Z])/g, '$1 $2').split(/[_\s]+/);
    return parts.map((part) => WORDS[part] ?? WORDS[part.toLowerCase()] ?? part.toLowerCase()).filter(Boolean).join(' ');
}

// An element with attributes, and children that are elements or texts.
function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
        else if (value !== false && value !== undefined) element.setAttribute(name, value === true ? '' : value);
    }
    element.append(...children.filter((child) => child !== undefined && child !== null));
    return element;
}

function clockTime(text) {
    return new Date(text).toLocaleString(undefined, { dateStyle: 'short', timeStyle: 'medium' });
}

function age(text, now = Date.now()) {
    const seconds = Math.max(0, Math.round((now - Date.parse(text)) / 1000));
    for (const [unit, word] of [[86400, 'd'], [3600, 'h'], [60, 'min']]) {
        if (seconds >= unit) return `${Math.floor(seconds / unit)} ${word} ago`;
    }
    return `${seconds} s ago`;
}

function kindOf(status) {
    if (status === 'success') return 'good';
    return status === 'warn' || status === 'unknown' ? 'warn' : 'bad';
}

const SIGNS = { good: '✓', warn: '!', bad: '✗' };

function stateMark(status) {
    const kind = kindOf(status);
    return make('span', { class: `state ${kind}` }, `${SIGNS[kind]} ${status}`);
}

function resultOf(item) {
    const last = item.lastResult;
    const parts = make('div', { class: 'result' });
    if (item.state === 'running') {
        parts.append(make('span', { class: 'state' }, '▶ running'), ` since ${clockTime(item.runningSince)} `);
    }
    if (last) {
        parts.append(stateMark(last.status), ` ${last.text} `, make('small', { title: clockTime(last.time) }, age(last.time)));
    } else if (item.state !== 'running') {
        parts.append(make('span', { class: 'soft' }, item.hasOwner ? 'has not run yet' : 'nobody owns it'));
    }
    return parts;
}

// One sign for each run, oldest first; gaps are shown as gaps.
function strip(events) {
    const row = make('div', { class: 'strip', role: 'list', tabindex: '0', 'aria-label': 'Runs, oldest first' });
    for (const event of events) {
        const isGap = event.kind === 'gap';
        const kind = isGap ? 'soft' : kindOf(event.status);
        const text = isGap ? `not observed: ${event.text}` : `${event.status}: ${event.text}`;
        const title = `${clockTime(event.time)} ${text}`;
        row.append(make('span', { class: kind, role: 'listitem', title, 'aria-label': title }, isGap ? '…' : SIGNS[kind]));
    }
    return row;
}

function plot(events) {
    const runs = events.filter((event) => event.durationMs !== undefined);
    if (runs.length < 2) return make('p', { class: 'soft' }, 'There are too few runs for a plot of durations.');
    const most = Math.max(1, ...runs.map((run) => run.durationMs));
    const space = 'http://www.w3.org/2000/svg';
    const svg = document.createElementNS(space, 'svg');
    svg.setAttribute('class', 'plot');
    svg.setAttribute('viewBox', '0 0 100 100');
    svg.setAttribute('preserveAspectRatio', 'none');
    svg.setAttribute('role', 'img');
    svg.setAttribute('aria-label', `Durations of ${runs.length} runs, at most ${most} ms`);
    const line = document.createElementNS(space, 'polyline');
    const place = (run, at) => `${(2 + (96 * at) / (runs.length - 1)).toFixed(1)},${(95 - (90 * run.durationMs) / most).toFixed(1)}`;
    line.setAttribute('points', runs.map(place).join(' '));
    svg.append(line);
    const figure = make('figure', {}, svg, make('figcaption', {}, `Durations: at most ${most} ms, the last one ${runs.at(-1).durationMs} ms`));
    return figure;
}

function eventRow(event) {
    const time = make('td', {}, make('time', { datetime: event.time }, clockTime(event.time)));
    if (event.kind === 'result') {
        const took = event.durationMs === undefined ? '' : `${event.durationMs} ms`;
        const cause = event.cause ? ` (${event.cause})` : '';
        return make('tr', {}, time, make('td', {}, event.item), make('td', {}, stateMark(event.status), ` ${event.text}${cause}`), make('td', {}, took));
    }
    const words = event.kind === 'gap' ? `not observed: ${event.text}` : event.status === 'away' ? 'the server left' : 'the server came';
    return make('tr', {}, time, make('td', {}, '–'), make('td', { class: 'soft' }, words), make('td'));
}
