// The fleet's side of the gateway: a real broker, which is killed, replaced and made to refuse, and Mosquitto's own clients.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import { after, before, test } from 'node:test';

import { Terminal, eventually } from './system.mjs';

const root = 'ominspect/room12';
const terminal = new Terminal();
const at = (name) => `${terminal.folder}/${name}`;

// A broker at a Unix socket, which keeps nothing beyond its process; or with what else its configuration says.
async function startBroker(more = '', name = 'broker') {
    fs.writeFileSync(at(`${name}.conf`), `user ${os.userInfo().username}\nallow_anonymous true\npersistence false\nlistener 0 ${at(`${name}.sock`)}\n${more}`, { mode: 0o600 });
    fs.rmSync(at(`${name}.sock`), { force: true });
    const broker = terminal.start('/usr/sbin/mosquitto', '-c', at(`${name}.conf`));
    await eventually(name, () => {
        if (broker.exitCode !== null) throw new Error(broker.said);
        return /mosquitto version .* running/.test(broker.said);
    });
    return broker;
}

// Mosquitto's clients know no Unix sockets in every version: a listener of the loopback's is for them.
let port;
const client = (...words) => ['-V', '5', '-h', '127.0.0.1', '-p', String(port), ...words];

// What is published from now on: {topic, retain, payload, correlation}, in order.
function subscribe(topic = `${root}/#`, ...words) {
    const child = terminal.start('mosquitto_sub', ...client('-q', '1', '-t', topic, '-F', '%r|%t|%D|%p', ...words));
    child.messages = () =>
        child.said
            .split('\n')
            .filter((line) => line.includes('|'))
            .map((line) => {
                const [retain, name, correlation, ...payload] = line.split('|');
                return { retain: retain === '1', topic: name.slice(root.length + 1), correlation, payload: payload.join('|') };
            });
    child.documents = (name) => child.messages().filter((one) => one.topic === name && one.payload).map((one) => JSON.parse(one.payload));
    child.has = (what, where) => eventually(what, () => child.messages().find(where));
    return child;
}

async function subscribed(...words) {
    const child = subscribe(...words);
    const mark = `mark ${Math.random()}`;
    // A subscription is there when a message of one's own comes by it.
    await eventually('a subscription', () => {
        spawnSync('mosquitto_pub', client('-t', `${root}/mark`, '-m', mark));
        return child.said.includes(mark);
    });
    return child;
}

function publish(topic, payload, ...words) {
    const done = spawnSync('mosquitto_pub', client('-q', '1', '-t', `${root}/${topic}`, '-m', payload, ...words), { encoding: 'utf8' });
    assert.equal(done.status, 0, done.stderr);
}

function ask(topic, payload, correlation, reply = `${root}/reply/test`) {
    publish(topic, payload, '-D', 'publish', 'response-topic', reply, '-D', 'publish', 'correlation-data', correlation);
}

const xml = (mqtt, history = true) => `<Gateway refresh="1">
    <History enabled="${history}" path="${at('history.db')}"/>
    <Http tokens="${at('tokens')}"><Unix path="${at('http.sock')}"/><Tcp address="127.0.0.1" port="0"/></Http>
    <Collection folder="${at('collection')}" config="${at('inspect_config.xml')}"/>
    ${mqtt}
</Gateway>`;
const mqtt = (attributes, content = '') => xml(`<Mqtt enabled="true" terminal="room12" position="${at('position')}" rate="1000" ${attributes}>${content}</Mqtt>`);
const near = (content) => mqtt(`socket="${at('broker.sock')}"`, content);
const parts = async () => (await terminal.ask('GET', '/api/v1/health')).json.parts;
async function isState(state, pattern = /./) {
    let part;
    try {
        return await eventually(`mqtt to be ${state}`, async () => {
            part = (await parts()).mqtt;
            return part.state === state && (state === 'ok' || pattern.test(part.text)) && part;
        });
    } catch (error) {
        throw new Error(`${error.message}; it is ${JSON.stringify(part)}`);
    }
}
const run = (item) => terminal.ctl('run', item);
const position = () => JSON.parse(fs.readFileSync(at('position'), 'utf8')).position;
// What the history holds, oldest first.
const kept = () => JSON.parse(terminal.ctl('history', '--json', '--limit', '1000').stdout).events.sort((a, b) => a.seq - b.seq);

let broker;

before(async () => {
    const probe = net.createServer().listen(0, '127.0.0.1');
    await new Promise((resolve) => probe.once('listening', resolve));
    port = probe.address().port;
    await new Promise((resolve) => probe.close(resolve));
    await terminal.startBus();
    terminal.startServer();
    terminal.startOwner(`${process.env.OMINSPECT_SOURCE}/tests/integration/owner.xml`, 'always_ok');
});
after(() => terminal.close());

const startNear = async (more = '') => (broker = await startBroker(`listener ${port} 127.0.0.1\n${more}`));

test('the state is retained, and what happens is told', async () => {
    await startNear();
    await terminal.startGateway(near());
    await isState('ok');
    run('always_ok');
    const late = subscribe();
    await late.has('the item', (one) => one.retain && one.topic === 'items/always_ok' && one.payload.includes('lastResult'));
    const item = late.documents('items/always_ok').at(-1);
    assert.equal(item.lastResult.status, 'success');
    assert.equal(item.hasOwner, true);
    const status = late.documents('status').at(-1);
    assert.equal(status.state, 'online');
    assert.equal(status.terminal, 'room12');
    assert.equal(status.server.isUp, true);
    run('always_ok');
    await late.has('the event', (one) => !one.retain && one.topic === 'events' && one.payload.includes('"result"'));
    await terminal.end(late);
});

test('a gateway that ends says goodbye, one that is killed is told lost', async () => {
    const all = await subscribed();
    await terminal.end(terminal.gateway);
    await all.has('the goodbye', (one) => one.topic === 'status' && one.payload.includes('"offline"'));
    await terminal.startGateway(near());
    await isState('ok');
    await terminal.end(terminal.gateway, 'SIGKILL');
    await all.has('the will', (one) => one.topic === 'status' && one.payload.includes('"lost"'));
    const late = subscribe(`${root}/status`);
    await late.has('the retained will', (one) => one.retain && one.payload.includes('"lost"'));
    await terminal.end(late);
    await terminal.end(all);
});

test('nothing is lost while the broker is away, and nothing comes out of order', async () => {
    const all = await subscribed();
    await terminal.startGateway(near());
    await isState('ok');
    await eventually('everything taken', () => fs.existsSync(at('position')) && position() === kept().at(-1).seq);
    const before = position();
    await terminal.end(broker, 'SIGKILL');
    await isState('failed');
    for (let i = 0; i < 5; i++) run('always_ok');
    await terminal.end(terminal.gateway, 'SIGKILL'); // with a backlog, and a broker that is still away
    await terminal.startGateway(near());
    for (let i = 0; i < 5; i++) run('always_critical');
    assert.equal((await terminal.ask('GET', '/api/v1/items')).status, 200);
    await startNear();
    const later = await subscribed();
    await isState('ok');
    const owed = kept().map((one) => one.seq).filter((seq) => seq > before);
    assert.ok(owed.length >= 10);
    await eventually('the backlog', () => {
        const seqs = later.documents('events').map((one) => one.seq);
        return seqs.includes(owed.at(-1));
    });
    const seqs = later.documents('events').map((one) => one.seq);
    assert.deepEqual([...new Set(seqs)].filter((seq) => owed.includes(seq)), owed);
    assert.deepEqual([...seqs].sort((a, b) => a - b), seqs, 'in order');
    await later.has('the item', (one) => one.topic === 'items/always_critical' && one.payload.includes('lastResult'));
    await terminal.end(all);
    await terminal.end(later);
});

test('a killed gateway goes on where the broker has taken everything', async () => {
    await eventually('everything taken', () => position() === kept().at(-1).seq);
    await terminal.end(terminal.gateway, 'SIGKILL');
    const all = await subscribed();
    await terminal.startGateway(near());
    await isState('ok');
    run('always_ok');
    const last = await eventually('the result', () => kept().filter((one) => one.kind === 'result').at(-1));
    await all.has('the event', (one) => one.topic === 'events' && one.payload.includes(`"seq":${last.seq}`));
    const told = all.documents('events').map((one) => one.seq);
    const gap = kept().find((one) => one.kind === 'gap' && one.seq === told[0]);
    assert.ok(gap, 'the first one is the time in which it did not run');
    await terminal.end(all);
});

test('what the history has not any more is said', async () => {
    await terminal.end(terminal.gateway);
    fs.writeFileSync(at('position'), JSON.stringify({ terminal: 'room12', position: kept()[0].seq - 10 }));
    const all = await subscribed();
    await terminal.startGateway(near());
    await all.has('the gap', (one) => one.topic === 'events' && one.payload.includes('"missing"'));
    const [gap] = all.documents('events');
    assert.deepEqual(gap.missing, { first: kept()[0].seq - 9, last: kept()[0].seq - 1 });
    await terminal.end(all);
    await terminal.end(terminal.gateway);
});

test('without a history what happens is told all the same', async () => {
    const all = await subscribed();
    await terminal.startGateway(near().replace('enabled="true" path', 'enabled="false" path'));
    await isState('ok');
    run('always_ok');
    await all.has('the event', (one) => one.topic === 'events' && one.payload.includes('"always_ok"'));
    await terminal.end(all);
    await terminal.end(terminal.gateway);
});

test('requests: nobody may unless it is said, and each role what is said', async () => {
    const all = await subscribed();
    const answers = (correlation) => all.messages().filter((one) => one.topic === 'reply/test' && one.correlation === correlation);
    const answer = (correlation, index = 0) =>
        eventually(`the answer to ${correlation}`, () => answers(correlation)[index]).then((one) => JSON.parse(one.payload));
    await terminal.startGateway(near('<Role name="desk" collect="true"><Run item="always_*"/></Role><Role name="look"><Run item="no_such"/></Role>'));
    await isState('ok');
    await eventually('the subscriptions', async () => {
        ask('run/desk', '{"item":"always_ok"}', 'probe');
        return answers('probe').length > 0;
    });
    ask('run/desk', '{"item":"always_ok"}', 'one');
    assert.equal((await answer('one')).state, 'accepted');
    const end = await answer('one', 1);
    assert.equal(end.state, 'ended');
    assert.equal(end.results[0].status, 'success');
    await eventually('the cause', () => kept().some((row) => row.cause === 'mqtt:desk'));
    ask('run/look', '{"item":"always_ok"}', 'two');
    assert.deepEqual(await answer('two'), { state: 'refused', reason: 'the role may not run this item' });
    ask('run/desk', 'no JSON at all', 'three');
    assert.deepEqual(await answer('three'), { state: 'refused', reason: 'a request is a JSON object' });
    ask('run/desk', `{"item":"${'x'.repeat(5000)}"}`, 'four');
    assert.deepEqual(await answer('four'), { state: 'refused', reason: 'a request has at most 4096 bytes' });
    ask('run/desk', 'x'.repeat(100000), 'five'); // more than the gateway takes in one message: the broker drops it
    ask('run/desk', '{"item":"always_ok"}', 'six', `${root}/items/forged`);
    ask('collect/desk', '', 'seven');
    assert.equal((await answer('seven')).state, 'accepted');
    const collected = await answer('seven', 1);
    assert.equal(collected.state, 'done');
    assert.ok(collected.bytes > 0);
    assert.equal(answers('five').length, 0);
    assert.ok(!all.messages().some((one) => one.topic === 'items/forged'));
    assert.equal((await parts()).mqtt.state, 'ok');
    await terminal.end(all);
    await terminal.end(terminal.gateway);
});

test('names that are no levels are escaped, and their texts stay texts', async () => {
    const all = await subscribed();
    await terminal.startGateway(near('').replace('room12"', 'room+12/#"'));
    await isState('ok');
    const other = subscribe('ominspect/room%2B12%2F%23/status', '-C', '1');
    assert.equal(await other.ended, 0);
    await terminal.end(all);
    await terminal.end(terminal.gateway);
    await terminal.end(broker);
});

test('a password', async () => {
    const made = spawnSync('mosquitto_passwd', ['-b', '-c', at('passwords'), 'room12', 'right horse']);
    assert.equal(made.status, 0);
    await startNear(`password_file ${at('passwords')}\n`.concat('per_listener_settings false\n').concat('allow_anonymous false\n').replace('allow_anonymous true\n', ''));
    fs.writeFileSync(at('login'), 'room12\nwrong horse\n', { mode: 0o600 });
    await terminal.startGateway(mqtt(`socket="${at('broker.sock')}" login="${at('login')}"`));
    await isState('failed', /refuses: Not authorized/);
    fs.writeFileSync(at('login'), 'room12\nright horse\n');
    await isState('ok');
    await terminal.end(terminal.gateway);
    fs.chmodSync(at('login'), 0o644);
    await terminal.startGateway(mqtt(`socket="${at('broker.sock')}" login="${at('login')}"`));
    await isState('failed', /everybody can read or change it/);
    await terminal.end(terminal.gateway);
    await terminal.end(broker);
});

function openssl(...words) {
    const done = spawnSync('openssl', words, { cwd: terminal.folder, encoding: 'utf8' });
    assert.equal(done.status, 0, done.stderr);
}

function makeCertificate(name, authority, ...more) {
    openssl('req', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-subj', `/CN=${name}`, '-keyout', `${name}.key`, '-out', `${name}.csr`);
    fs.writeFileSync(at(`${name}.ext`), 'subjectAltName=IP:127.0.0.1\n');
    openssl('x509', '-req', '-in', `${name}.csr`, '-CA', `${authority}.pem`, '-CAkey', `${authority}.key`, '-CAcreateserial', '-extfile', `${name}.ext`, '-out', `${name}.pem`, ...(more.length ? more : ['-days', '2']));
    fs.chmodSync(at(`${name}.key`), 0o600);
}

test('TLS with certificates of clients', async () => {
    for (const name of ['fleet', 'stranger']) {
        openssl('req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2', '-subj', `/CN=${name}`, '-keyout', `${name}.key`, '-out', `${name}.pem`);
    }
    makeCertificate('server', 'fleet');
    makeCertificate('room', 'fleet');
    makeCertificate('forged', 'stranger');
    makeCertificate('expired', 'fleet', '-days', '-1');
    broker = await startBroker(
        `listener ${port} 127.0.0.1\ncafile ${at('fleet.pem')}\ncertfile ${at('server.pem')}\nkeyfile ${at('server.key')}\nrequire_certificate true\n`,
    );
    const far = (name, authority = 'fleet', host = '127.0.0.1') =>
        mqtt(`host="${host}" port="${port}" authority="${at(`${authority}.pem`)}" ` + (name ? `certificate="${at(`${name}.pem`)}" key="${at(`${name}.key`)}"` : ''));
    const tries = async (settings, state, pattern) => {
        await terminal.startGateway(settings);
        await isState(state, pattern);
        await terminal.end(terminal.gateway);
    };
    await tries(far('room'), 'ok');
    await tries(far('forged'), 'failed', /certificate/);
    await tries(far('expired'), 'failed', /certificate/);
    await tries(far(''), 'failed', /certificate/);
    await tries(far('room', 'stranger'), 'failed', /certificate verify failed/);
    await tries(far('room', 'fleet', 'localhost'), 'failed', /certificate verify failed/); // not a name of the certificate
    fs.chmodSync(at('room.key'), 0o644);
    await tries(far('room'), 'failed', /everybody can read or change it/);
    await terminal.end(broker);
    fs.chmodSync(at('room.key'), 0o600);
    await tries(far('room'), 'failed', /refused/); // nobody listens
});

test('a broker that accepts and never answers holds up nothing', async (t) => {
    const silent = net.createServer(() => {}).listen(at('silent.sock'));
    t.after(() => silent.close());
    await terminal.startGateway(mqtt(`socket="${at('silent.sock')}"`));
    await isState('failed', /does not answer/);
    assert.equal(run('always_ok').status, 0);
    assert.equal((await terminal.ask('GET', '/api/v1/items/always_ok')).json.lastResult.status, 'success');
    assert.equal(await terminal.end(terminal.gateway), 0);
});
