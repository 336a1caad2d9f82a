// The gateway's metrics: judged by promtool, and scraped by a real Prometheus.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { after, before, test } from 'node:test';
import { Contract } from './contract.mjs';
import { ACT, LOOK, Terminal, eventually } from './system.mjs';

const terminal = new Terminal();
const shipped = `${terminal.source}/packaging/prometheus`;
let contract;
let prometheus;

// Every response is held against the description.
async function ask(method, options) {
    const response = await terminal.ask(method, '/metrics', options);
    contract.check(method, '/metrics', response);
    return response;
}

async function metrics() {
    const response = await ask('GET', { token: LOOK });
    assert.equal(response.status, 200);
    return response.text;
}

// Runs the item until its end.
async function run(item) {
    await terminal.outcome(await terminal.ask('POST', `/api/v1/items/${item}/run`));
}

function check(program, words, input) {
    const { status, stdout, stderr } = spawnSync(program, words, { input, encoding: 'utf8' });
    assert.equal(status, 0, stdout + stderr);
    assert.equal(stderr, '');
}

// The values of a query, by the labels that are asked for.
async function query(text, ...labels) {
    const response = await fetch(`${prometheus}/api/v1/query?query=${encodeURIComponent(text)}`);
    const { data } = await response.json();
    return Object.fromEntries(data.result.map(({ metric, value }) => [labels.map((label) => metric[label]).join(' '), Number(value[1])]));
}

before(async () => {
    await terminal.startAll();
    contract = new Contract((await terminal.ask('GET', '/api/v1/openapi.json', { token: null })).json);
});
after(() => terminal.close());

test('a token that may look sees them, nobody else', async () => {
    const response = await ask('GET', { token: LOOK });
    assert.equal(response.status, 200);
    assert.equal(response.type, 'text/plain; version=0.0.4; charset=utf-8');
    assert.equal((await ask('GET', { token: ACT })).status, 200);
    assert.equal((await ask('GET', { token: null })).status, 401);
    assert.equal((await ask('GET', { token: 'x'.repeat(30) })).status, 401);
    assert.equal((await ask('GET', { token: null, unix: true })).status, 200);
    assert.equal((await ask('POST', { token: ACT })).status, 405);
});

test('promtool has nothing to say against them', async () => {
    await run('always_ok');
    await run('always_critical');
    check('promtool', ['check', 'metrics'], await metrics());
});

test('they follow what happens', async () => {
    const text = await metrics();
    const runs = /^ominspect_item_runs_total\{item="always_ok",status="success"\} (\d+)$/m.exec(text);
    await run('always_ok');
    const line = `ominspect_item_runs_total{item="always_ok",status="success"} ${Number(runs[1]) + 1}\n`;
    await eventually(line, async () => (await metrics()).includes(line));
    const stream = terminal.listen();
    await stream.next('hello');
    await eventually('a listener', async () => (await metrics()).includes('\nominspect_gateway_listeners 1\n'));
    assert.match(await metrics(), /^ominspect_gateway_connections [2-9]$/m);
    stream.request.destroy();
});

test('what a plugin measures is shown, in base units', async () => {
    const argument = "fine | 'a b'=12.5ms;100;200 used=3MB;;;0;10 load=42%;~:80 hits=7c power=5W;;;;";
    await terminal.outcome(await terminal.ask('POST', '/api/v1/items/say_argument/run', { body: { argument } }));
    // The owner tells its values and the server its result, each by a way of its own.
    await eventually('the values', async () => (await metrics()).includes('unit="W"'));
    const text = await metrics();
    for (const line of [
        'seconds{item="say_argument",label="a b"} 0.0125',
        'limit_seconds{item="say_argument",label="a b",limit="crit_upper"} 0.2',
        'bytes{item="say_argument",label="used"} 3145728',
        'limit_bytes{item="say_argument",label="used",limit="max"} 10485760',
        'ratio{item="say_argument",label="load"} 0.42',
        'limit_ratio{item="say_argument",label="load",limit="warn_upper"} 0.8',
        'total{item="say_argument",label="hits"} 7',
        'value{item="say_argument",label="power",unit="W"} 5',
    ]) {
        assert.ok(text.includes(`\nominspect_perfdata_${line}\n`), `${line}\n${text}`);
    }
    check('promtool', ['check', 'metrics'], text);
    assert.equal((await terminal.ask('GET', '/api/v1/items/say_argument')).json.lastResult.text, 'fine', 'no text holds it');
});

test('what others say of an item is not believed', async () => {
    // The event as the owner sends it, by a connection that is not the owner.
    const event = Buffer.alloc(40 + 168);
    event.write('say_argument', 0);
    event.writeUInt32LE(1, 32);
    event.write('forged', 40);
    event.writeDoubleLE(1, 40 + 144);
    const address = `--address=${terminal.environment.KIVO_BUS_ADDRESS}`;
    const signal = ['emit', '/com/kivo/task/owner_5fitems', 'com.kivo.Msg', 'Event', 'uay', String(0x300001), String(event.length)];
    check('busctl', [address, ...signal, ...[...event].map(String)]);
    await terminal.outcome(await terminal.ask('POST', '/api/v1/items/always_ok/run'));
    assert.ok(!(await metrics()).includes('forged'));
    assert.match(await metrics(), /^ominspect_perfdata_value\{item="say_argument",label="power",unit="W"\} 5$/m);
});

test('what is not measured any more is not shown', async () => {
    await terminal.outcome(await terminal.ask('POST', '/api/v1/items/say_argument/run', { body: { argument: 'fine' } }));
    const isShown = async () => (await metrics()).includes('ominspect_perfdata_value{');
    await eventually('nothing', async () => !(await isShown()));
    await terminal.outcome(await terminal.ask('POST', '/api/v1/items/say_argument/run', { body: { argument: 'fine | a=1' } }));
    await eventually('a value', isShown);
    await terminal.end(terminal.owner);
    await eventually('the end of its values', async () => !(await isShown()));
    terminal.startOwner(`${terminal.source}/tests/integration/owner.xml`, 'say_argument');
    const value = async () => {
        await terminal.outcome(await terminal.ask('POST', '/api/v1/items/say_argument/run', { body: { argument: 'fine | a=2' } }));
        return (await metrics()).includes('\nominspect_perfdata_value{item="say_argument",label="a"} 2\n');
    };
    await eventually('those of the owner that came back', value);
});

test('Prometheus scrapes them by its token, and answers with what happened', async () => {
    fs.writeFileSync(`${terminal.folder}/prometheus.token`, LOOK, { mode: 0o600 });
    fs.writeFileSync(
        `${terminal.folder}/prometheus.yml`,
        `global: { scrape_interval: 1s }
scrape_configs:
  - job_name: ominspect
    authorization: { credentials_file: ${terminal.folder}/prometheus.token }
    static_configs: [{ targets: ["127.0.0.1:${terminal.port}"] }]
`,
    );
    const child = terminal.start(
        'prometheus',
        `--config.file=${terminal.folder}/prometheus.yml`,
        `--storage.tsdb.path=${terminal.folder}/tsdb`,
        '--web.listen-address=127.0.0.1:0',
    );
    prometheus = await eventually('Prometheus', () => {
        if (child.exitCode !== null) throw new Error(child.said);
        const address = /"Listening on" address=(\S+)/.exec(child.said);
        return address && `http://${address[1]}`;
    });
    await eventually('a scrape', async () => (await query('up', 'job')).ominspect === 1);
    assert.deepEqual(await query('ominspect_server_up', 'job'), { ominspect: 1 });
    const statuses = await query('ominspect_item_last_status', 'item', 'status');
    assert.equal(statuses['always_critical fail'], 1);
    assert.equal(statuses['always_ok success'], 1);
    const runs = async () => (await query('ominspect_item_runs_total{item="always_critical"}', 'status')).fail;
    const count = await runs();
    await run('always_critical');
    await eventually('the run', async () => (await runs()) === count + 1);
    assert.deepEqual(await query('ominspect_perfdata_value', 'item', 'label'), { 'say_argument a': 2 });
    const slow = 'histogram_quantile(1, sum by (le) (ominspect_item_run_duration_seconds_bucket{item="always_ok"}))';
    assert.ok(Object.values(await query(slow))[0] <= 300);
});

// The metrics that a query names, without the texts in it.
function namesIn(expression) {
    return expression.replace(/"[^"]*"/g, '""').match(/\b(?:ominspect|process)_[a-z_]+/g) ?? [];
}

// Every name that a query may use: those of the families, and of a histogram's samples.
async function names() {
    const all = new Set();
    for (const [, name, type] of (await metrics()).matchAll(/^# TYPE (\S+) (\S+)$/gm)) {
        for (const suffix of type === 'histogram' ? ['_bucket', '_sum', '_count'] : ['']) all.add(name + suffix);
    }
    return all;
}

test('the alerts come when they must, and name what there is', async () => {
    const rules = `${shipped}/ominspect.rules.yml`;
    check('promtool', ['check', 'rules', rules]);
    check('promtool', ['test', 'rules', `${terminal.source}/tests/gateway/alerts_test.yml`]);
    check('promtool', ['check', 'config', '--syntax-only', `${shipped}/prometheus.yml`]);
    const all = await names();
    const expressions = [...fs.readFileSync(rules, 'utf8').matchAll(/^ +expr: (.*)$/gm)].map(([, text]) => text);
    assert.equal(expressions.length, 11);
    for (const text of expressions) for (const name of namesIn(text)) assert.ok(all.has(name), `${name} in ${text}`);
    const tested = fs.readFileSync(`${terminal.source}/tests/gateway/alerts_test.yml`, 'utf8');
    for (const [, alert] of fs.readFileSync(rules, 'utf8').matchAll(/- alert: (\w+)/g)) {
        assert.ok(tested.includes(`alertname: ${alert}\n`), `${alert} is not tested`);
    }
});

test('the dashboard is whole, and each of its queries is one', async () => {
    const dashboard = JSON.parse(fs.readFileSync(`${shipped}/grafana-dashboard.json`, 'utf8'));
    const variables = dashboard.templating.list.map(({ name }) => name);
    assert.deepEqual([dashboard.uid, dashboard.schemaVersion, variables], ['ominspect', 37, ['datasource', 'instance', 'item']]);
    assert.equal(new Set(dashboard.panels.map(({ id }) => id)).size, dashboard.panels.length);
    const taken = new Set();
    const all = await names();
    for (const panel of dashboard.panels) {
        assert.ok(['stat', 'table', 'timeseries'].includes(panel.type) && panel.title && panel.targets.length > 0, panel.title);
        const { x, y, w, h } = panel.gridPos;
        assert.ok(x >= 0 && w > 0 && x + w <= 24 && h > 0, panel.title);
        for (let place = 0; place < w * h; ++place) {
            const at = `${x + (place % w)} ${y + Math.floor(place / w)}`;
            assert.ok(!taken.has(at), `${panel.title} covers another panel`);
            taken.add(at);
        }
        for (const { expr, refId, datasource } of panel.targets) {
            assert.ok(refId && datasource.type === 'prometheus' && datasource.uid === '${datasource}', expr);
            assert.ok(namesIn(expr).length > 0, expr);
            for (const name of namesIn(expr)) assert.ok(all.has(name), `${name} in ${expr}`);
            const text = expr.replaceAll('$__rate_interval', '1m').replaceAll('$instance', '.*').replaceAll('$item', '.*');
            assert.ok(!text.includes('$'), expr);
            const answer = await (await fetch(`${prometheus}/api/v1/query?query=${encodeURIComponent(text)}`)).json();
            assert.equal(answer.status, 'success', `${expr}: ${answer.error}`);
        }
    }
    for (const { query } of dashboard.templating.list.slice(1)) {
        for (const name of namesIn(query.query)) assert.ok(all.has(name), query.query);
    }
});

test('the loss of the server is scraped', async () => {
    await terminal.end(terminal.server, 'SIGKILL');
    await eventually('the loss', async () => (await query('ominspect_server_up', 'job')).ominspect === 0);
});

test('they can be switched off', async () => {
    await terminal.end(terminal.gateway);
    await terminal.startGateway('', '<Metrics enabled="false"/>');
    assert.equal((await ask('GET')).status, 503);
    assert.equal((await terminal.ask('GET', '/healthz')).json.parts.metrics, 'off');
});
