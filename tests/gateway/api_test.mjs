// HTTP of the gateway beside a real server on a bus of its own; every response is held against the description.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import { after, before, test } from 'node:test';
import { setTimeout as pause } from 'node:timers/promises';
import { Contract, isValid } from './contract.mjs';
import { ACT, LOOK, Terminal, eventually } from './system.mjs';

const terminal = new Terminal();
let contract;

async function ask(method, path, options) {
    const response = await terminal.ask(method, path, options);
    contract.check(method, path, response);
    return response;
}

before(async () => {
    await terminal.startAll();
    const document = (await terminal.ask('GET', '/api/v1/openapi.json', { token: null })).json;
    contract = new Contract(document);
});
after(() => terminal.close());

test('the description is valid OpenAPI 3.1', async () => {
    assert.equal(contract.document.openapi, '3.1.0');
    await isValid(contract.document);
});

test('the items are shown with level, mode, owner, state', async () => {
    const { json } = await ask('GET', '/api/v1/items');
    assert.equal(json.server.isUp, true);
    const configured = json.items.find((item) => item.item === 'bsp_mainboard_ft');
    assert.deepEqual([configured.level, configured.mode, configured.hasOwner, configured.state], ['error', 'sync', false, 'unknown']);
    const owned = json.items.find((item) => item.item === 'long_run');
    assert.deepEqual([owned.isConfigured, owned.hasOwner, owned.owners[0].process], [false, true, 'test_owner']);
    assert.equal((await ask('GET', '/api/v1/items/absent')).status, 404);
});

test('the picture is all the documents that a page begins with', async () => {
    const { json } = await ask('GET', '/api/v1/picture', { token: LOOK });
    assert.deepEqual(json.session, { role: 'look', who: 'screen' });
    assert.deepEqual(Object.keys(json), ['session', 'state', 'operations', 'health', 'collection', 'history']);
    assert.ok(json.state.items.some((one) => one.item === 'long_run'));
    assert.ok(json.history.events.some((one) => one.kind === 'server' && one.status === 'up'));
    assert.equal(json.health.parts.http.state, 'ok');
});

test('a run is accepted, told and kept', async () => {
    const stream = terminal.listen();
    await stream.next('hello');
    const accepted = await ask('POST', '/api/v1/items/say_argument/run', { body: { argument: '<b>hé</b>' } });
    assert.equal(accepted.status, 202);
    const outcome = await terminal.outcome(accepted);
    assert.deepEqual(outcome.results, [{ item: 'say_argument', status: 'success', text: '<b>hé</b>' }]);
    await stream.next('began', (event) => event.item === 'say_argument');
    const told = await stream.next('result', (event) => event.item === 'say_argument');
    assert.equal(told.data.cause, 'helpdesk');
    assert.equal(Number(told.id), told.data.seq);
    const kept = await ask('GET', '/api/v1/history?item=say_argument');
    assert.deepEqual(kept.json.events[0], told.data, 'what is told is kept already');
    const item = (await ask('GET', '/api/v1/items/say_argument')).json;
    assert.equal(item.lastResult.text, '<b>hé</b>');
    assert.equal(item.lastResult.seq, told.data.seq);
    stream.request.destroy();
});

test('a group is run as one, with an item that nobody owns', async () => {
    const accepted = await ask('POST', '/api/v1/groups', { body: { items: ['always_ok', 'always_critical', 'absent'] } });
    const outcome = await terminal.outcome(accepted);
    assert.deepEqual(outcome.results.map((one) => one.status), ['success', 'fail', 'fail']);
    assert.equal(typeof outcome.taskId, 'number');
    for (const items of [[], ['x'.repeat(32)], 'always_ok', [1]]) {
        assert.equal((await ask('POST', '/api/v1/groups', { body: { items } })).status, 400, JSON.stringify(items));
    }
});

test('what goes on can be stopped, once', async () => {
    const accepted = await ask('POST', '/api/v1/items/long_run/run');
    await eventually('the run', async () => (await ask('GET', '/api/v1/items/long_run')).json.state === 'running');
    const running = (await ask('GET', '/api/v1/items/long_run')).json;
    assert.ok(running.runningSince);
    assert.equal((await ask('POST', `${accepted.headers.location}/stop`)).status, 202);
    const outcome = await terminal.outcome(accepted);
    assert.equal(outcome.error.code, 'cancelled');
    assert.equal((await ask('POST', `${accepted.headers.location}/stop`)).status, 409);
    assert.equal((await ask('POST', '/api/v1/operations/999/stop')).status, 404);
    assert.equal((await ask('GET', '/api/v1/operations/999')).status, 404);
    assert.ok((await ask('GET', '/api/v1/operations')).json.operations.length > 0);
});

test('an item is stopped and reset, by whomever', async () => {
    const resets = [
        async () => assert.equal((await terminal.outcome(await ask('POST', '/api/v1/items/long_run/reset'))).error, undefined),
        async () => assert.equal(terminal.ctl('reset', 'long_run').status, 0),
    ];
    for (const reset of resets) {
        const run = await ask('POST', '/api/v1/items/long_run/run');
        await eventually('the run', async () => (await ask('GET', '/api/v1/items/long_run')).json.state === 'running');
        await terminal.outcome(await ask('POST', '/api/v1/items/long_run/stop'));
        await terminal.outcome(run);
        await eventually('its result', async () => (await ask('GET', '/api/v1/items/long_run')).json.state === 'not-idle');
        await pause(1000);  // longer than the gateway waits before it asks for a state
        assert.equal((await ask('GET', '/api/v1/items/long_run')).json.state, 'not-idle');
        await reset();
        await eventually('idle', async () => (await ask('GET', '/api/v1/items/long_run')).json.state === 'idle');
    }
});

test('wrong requests are told what is wrong', async () => {
    const road = '/api/v1/items/always_ok/run';
    for (const [body, detail] of [
        ['{', 'the content is no JSON object'],
        ['[]', 'the content is no JSON object'],
        [{ argument: 5 }, 'argument must be a text'],
        [{ argument: 'stop' }, 'the argument "stop" has an operation of its own'],
        [{ argument: 'x'.repeat(128) }, /127/],
        [{ timeoutSeconds: 0 }, 'timeoutSeconds must be a number from 1 to 86400'],
    ]) {
        const response = await ask('POST', road, { body });
        assert.equal(response.status, 400);
        assert.match(response.json.detail, detail instanceof RegExp ? detail : new RegExp(`^${detail}$`));
        assert.equal(response.json.type, 'urn:ominspect:problem:request');
    }
    assert.equal((await ask('POST', road, { body: 'x'.repeat(70000) })).status, 413);
    assert.equal((await ask('POST', road, { body: 'a=b', headers: { 'content-type': 'application/x-www-form-urlencoded' } })).status, 415);
    assert.equal((await terminal.ask('GET', '/api/v1/nothing')).status, 404);
    assert.equal((await terminal.ask('GET', '/../etc/passwd')).status, 404);
    const wrong = await terminal.ask('DELETE', '/api/v1/items');
    assert.deepEqual([wrong.status, wrong.headers.allow], [405, 'GET']);
    assert.equal((await terminal.ask('GET', '/api/v1/items/%00')).status, 400);
    assert.equal((await ask('GET', '/healthz?item=%zz')).status, 400);
    for (const query of ['limit=0', 'limit=1001', 'limit=x', 'since=soon', 'before=-1', 'item=%zz', 'status=a%00b']) {
        assert.equal((await ask('GET', `/api/v1/history?${query}`)).status, 400, query);
    }
});

test('roles hold', async () => {
    assert.equal((await ask('GET', '/api/v1/items', { token: null })).status, 401);
    assert.equal((await ask('GET', '/api/v1/items', { token: LOOK })).status, 200);
    assert.equal((await ask('POST', '/api/v1/items/always_ok/run', { token: LOOK })).status, 403);
    assert.equal((await ask('GET', '/api/v1/collection/package', { token: LOOK })).status, 403);
    assert.deepEqual((await ask('GET', '/api/v1/session', { token: LOOK })).json, { role: 'look', who: 'screen' });
    assert.deepEqual((await ask('GET', '/api/v1/session', { token: null, unix: true })).json, { role: 'act', who: 'local' });
    assert.equal((await ask('GET', '/healthz', { token: null })).status, 200);
    assert.equal((await ask('GET', '/metrics', { token: LOOK })).status, 200);
});

test('a session has a cookie that no script reads, and ends', async () => {
    const own = { origin: terminal.address };
    const login = await ask('POST', '/api/v1/login', { token: null, body: { token: ACT } });
    assert.equal(login.status, 200);
    const cookie = login.headers['set-cookie'][0];
    assert.match(cookie, /^ominspect=[0-9a-f]{64}; Path=\/; HttpOnly; SameSite=Strict; Max-Age=\d+$/);
    const headers = { cookie: cookie.split(';')[0] };
    assert.equal((await ask('GET', '/api/v1/items', { token: null, headers })).status, 200);
    assert.equal((await ask('POST', '/api/v1/items/always_ok/run', { token: null, headers })).status, 403, 'no Origin');
    const run = await ask('POST', '/api/v1/items/always_ok/run', { token: null, headers: { ...headers, ...own } });
    assert.equal(run.status, 202);
    assert.equal((await ask('POST', '/api/v1/logout', { token: null, headers: { ...headers, ...own } })).status, 200);
    assert.equal((await ask('GET', '/api/v1/items', { token: null, headers })).status, 401);
    assert.equal((await ask('POST', '/api/v1/login', { token: null, body: {} })).status, 400);
});

test('pages from elsewhere can neither read nor act', async () => {
    for (const headers of [{ origin: 'http://evil.example' }, { 'sec-fetch-site': 'cross-site' }, { origin: 'null' }]) {
        assert.equal((await ask('GET', '/api/v1/items', { headers })).status, 403, JSON.stringify(headers));
        assert.equal((await ask('POST', '/api/v1/items/always_ok/run', { headers })).status, 403, JSON.stringify(headers));
    }
    assert.equal((await ask('GET', '/api/v1/items', { headers: { host: 'evil.example' } })).status, 421);
    const { headers } = await ask('GET', '/api/v1/items');
    assert.match(headers['content-security-policy'], /^default-src 'none'; script-src 'self'; style-src 'self'/);
    assert.doesNotMatch(headers['content-security-policy'], /unsafe/);
    assert.equal(headers['access-control-allow-origin'], undefined);
    assert.equal(headers['x-content-type-options'], 'nosniff');
});

test('a head that is too large ends the connection', async () => {
    const response = await new Promise((resolve) => {
        const socket = net.connect(terminal.port, '127.0.0.1', () => {
            socket.write(`GET /healthz HTTP/1.1\r\nHost: localhost\r\nX: ${'x'.repeat(40000)}\r\n\r\n`);
        });
        let text = '';
        socket.on('data', (data) => (text += data));
        socket.on('error', () => resolve(text));
        socket.on('close', () => resolve(text));
    });
    assert.doesNotMatch(response, /^HTTP\/1\.1 200/);
    assert.equal((await ask('GET', '/healthz')).status, 200);
});

test('the history is paged both ways', async () => {
    for (let i = 0; i < 3; ++i) await terminal.outcome(await ask('POST', '/api/v1/items/always_ok/run'));
    const first = (await ask('GET', '/api/v1/history?limit=2')).json;
    assert.equal(first.events.length, 2);
    const second = (await ask('GET', `/api/v1/history?limit=2&before=${first.nextBefore}`)).json;
    assert.ok(second.events[0].seq < first.events[1].seq);
    const forth = (await ask('GET', `/api/v1/history?limit=2&after=${second.events[1].seq}`)).json;
    assert.equal(forth.events[0].seq, second.events[0].seq);
    const failed = (await ask('GET', '/api/v1/history?status=fail&since=1h')).json;
    assert.ok(failed.events.length > 0 && failed.events.every((event) => event.status === 'fail'));
    assert.equal((await ask('GET', '/api/v1/history?since=2000-01-01T00:00:00Z&until=2000-01-02T00:00:00Z')).json.events.length, 0);
});

test('who comes back to the events gets what was missed', async () => {
    const stream = terminal.listen();
    const hello = await stream.next('hello');
    stream.request.destroy();
    await terminal.outcome(await ask('POST', '/api/v1/items/always_critical/run'));
    const again = terminal.listen({ after: hello.id });
    await again.next('hello');
    const missed = again.events.slice(0, -1);
    assert.ok(missed.some((one) => one.event === 'result' && one.data.item === 'always_critical'), JSON.stringify(missed));
    assert.ok(!again.events.some((one) => one.event === 'reset'));
    again.request.destroy();
    const lost = terminal.listen({ after: 5 });
    await lost.next('reset');
    lost.request.destroy();
    assert.equal((await ask('GET', '/api/v1/events?after=x')).status, 400);
});

test('500 listen at once on one thread, and the next one is told', async () => {
    const threads = () => fs.readdirSync(`/proc/${terminal.gateway.pid}/task`).length;
    const free = async () => (await ask('GET', '/api/v1/health')).json.gateway.listeners === 0;
    await eventually('no listener', free);
    const before = threads();
    const streams = Array.from({ length: 500 }, () => terminal.listen());
    await Promise.all(streams.map((stream) => stream.next('hello')));
    assert.equal(threads(), before);
    assert.equal((await ask('GET', '/api/v1/events')).status, 503);
    await terminal.outcome(await ask('POST', '/api/v1/items/always_ok/run'));
    await Promise.all(streams.map((stream) => stream.next('result')));
    for (const stream of streams) stream.request.destroy();
    // A line that is gone is noticed when something is written to it.
    await eventually('their end', async () => {
        await terminal.outcome(await terminal.ask('POST', '/api/v1/items/always_ok/run'));
        return free();
    });
});

test('at rest it takes at most 12 MiB, whatever it was asked before', async (context) => {
    const figure = (name) => Number(new RegExp(`^${name}:\\s+(\\d+) kB`, 'm').exec(fs.readFileSync(`/proc/${terminal.gateway.pid}/status`, 'utf8'))[1]);
    await eventually('less memory', () => figure('VmRSS') <= 12288 && figure('VmRSS') < 0.75 * figure('VmHWM'));
    context.diagnostic(`${figure('VmRSS')} of at most ${figure('VmHWM')} KiB`);
    assert.equal((await ask('GET', '/api/v1/items')).status, 200, 'and it serves');
});

test('logs are collected, one collection at a time', async () => {
    assert.equal((await ask('GET', '/api/v1/collection')).json.state, 'none');
    assert.equal((await ask('GET', '/api/v1/collection/package')).status, 404);
    const stream = terminal.listen();
    await stream.next('hello');
    assert.equal((await ask('POST', '/api/v1/collection')).status, 202);
    await stream.next('collection', (one) => one.progress.startsWith('['));
    const { data } = await stream.next('collection', (one) => one.state !== 'going-on');
    assert.equal(data.state, 'done', JSON.stringify(data));
    stream.request.destroy();
    const packed = await ask('GET', '/api/v1/collection/package');
    assert.equal(packed.bytes.length, data.bytes);
    assert.equal(packed.bytes.readUInt32LE(0), 0xfd2fb528, 'zstd');
    assert.equal((await ask('DELETE', '/api/v1/collection')).json.state, 'none');
    assert.equal((await ask('GET', '/api/v1/collection/package')).status, 404);
});

test('ominspectctl shows what everybody ran', async () => {
    await terminal.outcome(await ask('POST', '/api/v1/items/later_ok/run'));
    const history = terminal.ctl('history', 'later_ok', '--limit', '1');
    assert.match(history.stdout, /^TIME .*\n\d{4}-\d\d-\d\d \d\d:\d\d  later_ok  success  \d+ ms +late but fine \(helpdesk\)\n$/);
    const rows = JSON.parse(terminal.ctl('history', '--json', '--status', 'fail', '--since', '1h').stdout).events;
    assert.ok(rows.length > 0 && rows.every((row) => row.status === 'fail'));
    assert.match(terminal.ctl('list').stdout, /\nlater_ok .* success, \d+ s ago: late but fine\n/);
    assert.equal(terminal.ctl('history', '--since', 'soon').status, 2);
    assert.equal(terminal.ctl('history', '--file', '/nothing').status, 3);
    assert.match(terminal.ctl('history', '--file', '/nothing').stderr, /cannot read the history \/nothing/);
    const elsewhere = { ...terminal.environment, KIVO_BUS_ADDRESS: 'unix:path=/another' };
    assert.equal(spawnSync(`${process.env.OMINSPECT_BIN}/ominspectctl`, ['history'], { env: elsewhere }).status, 0);
});

test('every road was gone', () => {
    const all = Object.entries(contract.document.paths).flatMap(([road, methods]) => Object.keys(methods).map((method) => `${method} ${road}`));
    const missing = all.filter((road) => !contract.seen.has(road) && road !== 'get /api/v1/openapi.json');
    assert.deepEqual(missing, []);
});

test('the server leaves and comes back, and the gateway is killed: nothing is hidden', async () => {
    const stream = terminal.listen();
    const hello = await stream.next('hello');
    await terminal.end(terminal.server, 'SIGKILL');
    await stream.next('server', (event) => event.status === 'away');
    assert.equal((await ask('GET', '/healthz')).status, 503);
    assert.equal((await ask('GET', '/healthz')).json.parts.server, 'failed');
    terminal.startServer();
    await stream.next('server', (event) => event.status === 'up');
    await eventually('health', async () => (await ask('GET', '/healthz')).status === 200);
    assert.equal((await ask('GET', '/api/v1/items')).json.server.restarts, 1);
    const seen = stream.events.filter((one) => one.id).map((one) => one.id);
    await terminal.end(terminal.gateway, 'SIGKILL');
    await eventually('the end of the events', () => stream.isOver);
    await terminal.startGateway();
    const again = terminal.listen({ after: hello.id });
    await again.next('gap', (event) => event.text === 'the gateway did not run');
    const told = again.events.map((one) => one.id);
    for (const id of seen) assert.ok(id === hello.id || told.includes(id), `${id} was told and is lost`);
    again.request.destroy();
    assert.match(terminal.ctl('history').stdout, /not observed from .*: the gateway did not run/);
});

test('the bus leaves and comes back, and the gateway stays', async () => {
    await terminal.end(terminal.owner, 'SIGKILL');
    await terminal.end(terminal.bus, 'SIGKILL');
    await eventually('the loss', async () => (await ask('GET', '/healthz')).json.parts.bus === 'failed');
    const refused = await terminal.outcome(await ask('POST', '/api/v1/items/always_ok/run'));
    assert.equal(refused.error.code, 'bus-unreachable');
    await terminal.end(terminal.server, 'SIGKILL').catch(() => {});
    fs.rmSync(`${terminal.folder}/bus`, { force: true });
    await terminal.startBus();
    terminal.startServer();
    await eventually('health', async () => (await ask('GET', '/healthz')).status === 200);
    // The history is written on a thread of its own.
    await eventually('the gap', async () => {
        const { json } = await ask('GET', '/api/v1/history?limit=100');
        return json.events.some((event) => event.kind === 'gap' && event.text === 'the message bus was away');
    });
});

test('SIGTERM ends it cleanly, with listeners', async () => {
    const stream = terminal.listen();
    await stream.next('hello');
    assert.equal(await terminal.end(terminal.gateway), 0);
    await eventually('the end of the events', () => stream.isOver);
});

test('what must not be served is not', async () => {
    const start = async (http) => {
        const file = `${terminal.folder}/refused.xml`;
        fs.writeFileSync(file, `<Gateway><History enabled="false"/>${http}</Gateway>`);
        const gateway = terminal.start(`${process.env.OMINSPECT_BIN}/ominspect-gateway`, '--config', file);
        const code = await gateway.ended;
        terminal.processes = terminal.processes.filter((one) => one !== gateway);
        return `${code} ${gateway.said}`;
    };
    const open = '<Tcp address="0.0.0.0" port="0"/>';
    assert.match(await start(`<Http tokens="${terminal.folder}/tokens">${open}</Http>`), /^3 .*takes a certificate and its key/s);
    spawnSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes', '-subj', '/CN=localhost', '-keyout', `${terminal.folder}/key.pem`, '-out', `${terminal.folder}/cert.pem`]);
    const tls = `certificate="${terminal.folder}/cert.pem" key="${terminal.folder}/key.pem"`;
    assert.match(await start(`<Http ${tls} tokens="/nothing">${open}</Http>`), /^3 .*takes tokens; there are none/s);
    fs.chmodSync(`${terminal.folder}/tokens`, 0o644);
    assert.match(await start(`<Http tokens="${terminal.folder}/tokens"/>`), /^3 .*everybody can read or change it/s);
    assert.match(await start('<Telnet/>'), /^2 .*unknown element 'Telnet'/s);
});

test('with a certificate it is served by TLS', async () => {
    fs.chmodSync(`${terminal.folder}/tokens`, 0o600);
    fs.writeFileSync(
        `${terminal.folder}/tls.xml`,
        `<Gateway><History enabled="false"/><Http tokens="${terminal.folder}/tokens" certificate="${terminal.folder}/cert.pem" key="${terminal.folder}/key.pem"><Tcp address="0.0.0.0" port="0"/></Http></Gateway>`,
    );
    const gateway = terminal.start(`${process.env.OMINSPECT_BIN}/ominspect-gateway`, '--config', `${terminal.folder}/tls.xml`);
    const port = await eventually('the gateway', () => /https:\/\/0\.0\.0\.0:(\d+)/.exec(gateway.said)?.[1]);
    const answer = spawnSync('curl', ['-si', '--cacert', `${terminal.folder}/cert.pem`, '-d', JSON.stringify({ token: LOOK }), '-H', 'Content-Type: application/json', `https://localhost:${port}/api/v1/login`], { encoding: 'utf8' });
    assert.match(answer.stdout, /^HTTP\/1\.1 200/, answer.stderr);
    assert.match(answer.stdout, /; Secure\r\n/);
    const off = spawnSync('curl', ['-s', '--cacert', `${terminal.folder}/cert.pem`, '-H', `Authorization: Bearer ${LOOK}`, `https://localhost:${port}/api/v1/history`], { encoding: 'utf8' });
    assert.equal(JSON.parse(off.stdout).detail, 'the history is switched off');
    assert.equal(await terminal.end(gateway), 0);
});
