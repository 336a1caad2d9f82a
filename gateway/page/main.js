// The page's state and its talk with the gateway. What is shown comes from /api/v1/picture, and after events from the
// documents that it is made of. The second half of the page's one module, after view.js.

const at = (id) => document.getElementById(id);
let role = 'none';
let state = null;
let stream = null;
let past = [];
let nextBefore;
let chosen = new Set();
let timer = 0;
let lastSign = 0;
let isConnected = false;

async function ask(method, path, body) {
    const options = { method, headers: {}, signal: AbortSignal.timeout(15000) };
    if (body !== undefined) {
        options.headers['content-type'] = 'application/json';
        options.body = JSON.stringify(body);
    }
    const response = await fetch(path, options);
    const content = await response.json();
    if (response.status === 401 && !path.endsWith('/login')) showLogin();
    if (!response.ok) throw new Error(content.detail ?? response.statusText);
    return content;
}

// An action of somebody's: what goes wrong is told where the others see it, too.
async function act(method, path, body) {
    try {
        return await ask(method, path, body);
    } catch (error) {
        at('now').append(make('p', { class: 'bad', role: 'alert' }, error.message));
        return undefined;
    }
}

// ---- what is wrong now ----

// Not known until it changes.
function busyWord(isBusy) {
    if (isBusy === undefined) return 'there';
    return isBusy ? 'busy' : 'idle';
}

function showConnection() {
    const line = at('connection');
    line.className = isConnected ? '' : 'stale';
    if (!state) line.textContent = isConnected ? '' : 'connecting';
    else if (isConnected) line.textContent = state.server.isUp ? `The server is ${busyWord(state.server.isBusy)}` : 'The server is not there';
    else line.textContent = `The connection is lost: this picture is of ${clockTime(state.time)}, ${age(new Date(lastSign).toISOString())}`;
}

function showNow() {
    const wrong = state.items.filter((item) => item.lastResult && kindOf(item.lastResult.status) !== 'good');
    const parts = [];
    if (!state.server.isUp) parts.push(make('p', { class: 'bad' }, '✗ The inspection server is not there: nothing can be run.'));
    for (const process of state.silentProcesses) parts.push(make('p', { class: 'warn' }, `! ${process} does not say what it owns.`));
    if (wrong.length === 0) parts.push(make('p', { class: 'good' }, '✓ No result says that anything is wrong.'));
    else {
        const rows = wrong.map((item) => make('li', {}, make('strong', {}, item.item), ' ', resultOf(item)));
        parts.push(make('p', {}, `${wrong.length} of ${state.items.filter((item) => item.lastResult).length} results say that something is wrong:`), make('ul', { class: 'plain' }, ...rows));
    }
    at('now').replaceChildren(...parts);
}

// ---- the items ----

function isShown(item) {
    const text = at('search').value.toLowerCase();
    const filter = at('filter').value;
    if (text && !`${item.item} ${wordsOf(item.item)} ${item.lastResult?.text ?? ''}`.toLowerCase().includes(text)) return false;
    if (filter === 'wrong') return item.lastResult && kindOf(item.lastResult.status) !== 'good';
    if (filter === 'owned') return item.hasOwner;
    return filter === 'all' || item.level === filter;
}

function itemRow(item) {
    const name = item.item;
    const path = `/api/v1/items/${encodeURIComponent(name)}`;
    const box = make('input', {
        type: 'checkbox', 'aria-label': `choose ${name}`, disabled: role !== 'act',
        onchange: (event) => {
            if (event.target.checked) chosen.add(name);
            else chosen.delete(name);
            at('run-chosen').disabled = chosen.size === 0 || role !== 'act';
        },
    });
    box.checked = chosen.has(name);
    const isRunning = item.state === 'running';
    const button = make('button', {
        type: 'button', disabled: role !== 'act' || !state.server.isUp, 'aria-label': `${isRunning ? 'stop' : 'run'} ${name}`, 'data-item': name,
        onclick: () => act('POST', `${path}/${isRunning ? 'stop' : 'run'}`),
    }, isRunning ? 'Stop' : 'Run');
    const open = make('button', { type: 'button', onclick: () => showDetail(name) }, name);
    const about = [wordsOf(name), item.level && `level ${item.level}`, item.owners.map((owner) => owner.process).join(', ')].filter(Boolean).join(' · ');
    return make('li', { 'data-name': name }, box, make('div', { class: 'name' }, open, make('br'), make('small', {}, about)), resultOf(item), button);
}

function showItems() {
    const bySubject = Map.groupBy ? Map.groupBy(state.items.filter(isShown), (item) => subjectOf(item.item)) : new Map([['All', state.items.filter(isShown)]]);
    const focused = document.activeElement?.dataset?.item;
    const parts = [];
    for (const [subject, items] of bySubject) {
        parts.push(make('h3', {}, `${subject} (${items.length})`), make('ul', { class: 'items' }, ...items.map(itemRow)));
    }
    at('items').replaceChildren(...(parts.length ? parts : [make('p', { class: 'soft' }, 'No item is of this kind.')]));
    if (focused) at('items').querySelector(`button[data-item="${CSS.escape(focused)}"]`)?.focus();
}

async function showDetail(name) {
    at('detail-title').textContent = name;
    at('detail-body').replaceChildren(make('p', {}, 'reading its history'));
    if (!at('detail').open) at('detail').showModal();
    try {
        const { events } = await ask('GET', `/api/v1/history?limit=200&item=${encodeURIComponent(name)}`);
        const runs = events.filter((event) => event.kind === 'result' || event.kind === 'gap').reverse();
        const rows = make('tbody', {}, ...runs.slice(-20).reverse().map(eventRow));
        const head = make('thead', {}, make('tr', {}, ...['Time', 'Item', 'Result', 'Took'].map((text) => make('th', { scope: 'col' }, text))));
        at('detail-body').replaceChildren(make('p', {}, wordsOf(name)), strip(runs), plot(runs), make('table', {}, head, rows));
    } catch (error) {
        at('detail-body').replaceChildren(make('p', { class: 'bad' }, error.message));
    }
}

// ---- operations, the past, logs, health ----

const readOperations = async () => showOperations(await ask('GET', '/api/v1/operations'));
function showOperations({ operations }) {
    const lines = operations.filter((one) => one.state !== 'ended' || Date.now() - Date.parse(one.end) < 30000).map((one) => {
        const what = `${one.operation} ${one.items.length > 3 ? `${one.items.length} items` : one.items.join(', ')} (${one.who})`;
        const done = one.results.length;
        const line = make('li', {}, one.state === 'ended' ? '■ ' : '▶ ', what, `: ${one.state === 'ended' ? 'ended' : one.state === 'waiting' ? 'waits for its turn' : 'goes on'}, ${done} of ${one.items.length} done`);
        if (one.error) line.append(make('span', { class: 'bad' }, ` ${one.error.text}`));
        if (one.state === 'ended') for (const result of one.results.slice(0, 5)) line.append(' ', stateMark(result.status));
        else if (role === 'act') line.append(' ', make('button', { type: 'button', 'aria-label': `stop ${what}`, onclick: () => act('POST', `/api/v1/operations/${one.id}/stop`) }, 'Stop'));
        return line;
    });
    at('operations').replaceChildren(make('ul', { class: 'plain' }, ...lines));
}

function showPast() {
    const head = make('thead', {}, make('tr', {}, ...['Time', 'Item', 'Result', 'Took'].map((text) => make('th', { scope: 'col' }, text))));
    at('past').replaceChildren(make('table', {}, head, make('tbody', {}, ...past.map(eventRow))));
    at('older').hidden = nextBefore === undefined;
}

function addPast(page) {
    past = [...past, ...page.events.filter((event) => event.kind !== 'busy')];
    nextBefore = page.nextBefore;
    showPast();
}

function showCollection(collection) {
    const parts = [];
    const begin = (text) => make('button', { type: 'button', id: 'collect', disabled: role !== 'act', onclick: () => act('POST', '/api/v1/collection') }, text);
    if (collection.state === 'none') parts.push(begin('Collect the logs'));
    else if (collection.state === 'going-on') parts.push(make('progress', { 'aria-label': 'collecting' }), make('p', {}, `Collecting. ${collection.progress}`));
    else {
        const isDone = collection.state === 'done';
        parts.push(make('p', { class: isDone ? 'good' : 'bad' }, isDone ? `✓ Collected ${age(collection.end)}: ${Math.ceil(collection.bytes / 1024)} KiB${collection.isWhole ? '' : ', but not everything'}` : `✗ ${collection.progress}`));
        if (isDone && role === 'act') parts.push(make('a', { href: collection.package, download: true }, 'Download the package'), ' ');
        parts.push(begin('Collect again'), ' ', make('button', { type: 'button', disabled: role !== 'act', onclick: () => act('DELETE', '/api/v1/collection') }, 'Delete'));
    }
    at('collection').replaceChildren(...parts);
}

const readHealth = async () => showHealth(await ask('GET', '/api/v1/health'));
function showHealth({ parts, gateway }) {
    const rows = Object.entries(parts).map(([name, part]) => make('tr', {}, make('th', { scope: 'row' }, name), make('td', { class: part.state === 'ok' ? 'good' : part.state === 'failed' ? 'bad' : 'warn' }, part.state), make('td', {}, part.text ?? '')));
    const figures = `${gateway.listeners} listen; the history has ${Math.ceil((gateway.historyBytes ?? 0) / 1024)} KiB`;
    at('health').replaceChildren(make('table', {}, make('tbody', {}, ...rows)), make('p', { class: 'soft' }, figures));
}

// ---- the talk ----

const readState = async () => showState(await ask('GET', '/api/v1/items'));
function showState(read) {
    state = read;
    lastSign = Date.now();
    showConnection();
    showNow();
    showItems();
}

async function readAll() {
    const picture = await ask('GET', '/api/v1/picture');
    role = picture.session.role;
    at('login').hidden = true;
    at('content').hidden = false;
    at('logout').hidden = false;
    showState(picture.state);
    showOperations(picture.operations);
    past = [];
    if (picture.history) addPast(picture.history);
    showHealth(picture.health);
    if (picture.collection) showCollection(picture.collection);
}

// Events that come together are answered by one look.
function readSoon() {
    if (timer === 0) {
        timer = setTimeout(() => {
            timer = 0;
            readState().catch(() => {});
        }, 150);
    }
}

function listen() {
    stream?.close();
    stream = new EventSource('/api/v1/events');
    const on = (name, take) => stream.addEventListener(name, (event) => {
        lastSign = Date.now();
        take(JSON.parse(event.data));
    });
    on('hello', () => {
        isConnected = true;
        readAll().catch(() => {});
    });
    for (const name of ['began', 'busy', 'items', 'server']) on(name, readSoon);
    for (const name of ['result', 'gap', 'server']) {
        on(name, (event) => {
            readSoon();
            if (!past.some((one) => one.seq === event.seq)) past = [event, ...past].slice(0, 500);
            showPast();
        });
    }
    on('part', () => readHealth().catch(() => {}));
    on('operation', () => readOperations().catch(() => {}));
    on('collection', showCollection);
    stream.onerror = () => {
        isConnected = false;
        showConnection();
        // A refusal ends it for good, where a loss does not: the gateway knows no session (any more), or has no place.
        if (stream.readyState === EventSource.CLOSED) findSession();
    };
}

function showLogin() {
    stream?.close();
    role = 'none';
    at('login').hidden = false;
    at('content').hidden = true;
    at('logout').hidden = true;
    at('token').focus();
}

// Asks for the token where there is no session, else listens again.
async function findSession() {
    const session = await fetch('/api/v1/session').catch(() => null);
    if (session?.status === 401) showLogin();
    else setTimeout(listen, 2000);
}

async function logIn(token) {
    await ask('POST', '/api/v1/login', { token });
    listen();
}

at('login').addEventListener('submit', (event) => {
    event.preventDefault();
    const token = at('token').value;
    at('token').value = '';
    at('login-error').textContent = '';
    logIn(token).catch((error) => (at('login-error').textContent = error.message));
});
at('logout').addEventListener('click', () => ask('POST', '/api/v1/logout').then(showLogin));
at('search').addEventListener('input', () => state && showItems());
at('filter').addEventListener('change', () => state && showItems());
at('older').addEventListener('click', () => ask('GET', `/api/v1/history?limit=50&before=${nextBefore}`).then(addPast).catch(() => {}));
at('run-chosen').addEventListener('click', () => {
    act('POST', '/api/v1/groups', { items: [...chosen] });
    chosen = new Set();
    at('run-chosen').disabled = true;
    showItems();
});
// Ages grow, and a connection that says nothing may be lost.
setInterval(() => {
    showConnection();
    if (state && isConnected) showNow();
}, 5000);

// A token behind the # of the address, which a browser sends to nobody, logs in by itself.
const given = /^#token=(.+)$/.exec(location.hash);
if (given) {
    history.replaceState(null, '', '/');
    logIn(decodeURIComponent(given[1])).catch(() => showLogin());
} else {
    listen();
}
