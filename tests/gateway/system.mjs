// A terminal for one test: a bus of its own, the server, an owner, the gateway; all ended with it.
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as pause } from 'node:timers/promises';

const bin = process.env.OMINSPECT_BIN;
const source = process.env.OMINSPECT_SOURCE;

export const ACT = 'act-0123456789abcdef0123';
export const LOOK = 'look-0123456789abcdef012';

// Asks again and again until `look` gives something.
export async function eventually(what, look) {
    for (let end = Date.now() + 60000; Date.now() < end; await pause(20)) {
        const found = await look();
        if (found) return found;
    }
    throw new Error(`gave up waiting for ${what}`);
}

export class Terminal {
    constructor() {
        this.folder = fs.mkdtempSync(path.join(os.tmpdir(), 'ominspect-gateway-test-'));
        this.processes = [];
        this.source = source;
        this.environment = {
            ...process.env,
            KIVO_BUS_ADDRESS: `unix:path=${this.folder}/bus`,
            KIVO_LOG_DIR: this.folder,
            XDG_STATE_HOME: `${this.folder}/state`,
            OMINSPECT_HISTORY: `${this.folder}/history.db`,
            PID_FILE: `${this.folder}/long_run.pid`,
        };
    }

    start(program, ...words) {
        const child = spawn(program, words, { env: this.environment, stdio: ['ignore', 'pipe', 'pipe'] });
        child.said = '';
        for (const stream of [child.stdout, child.stderr]) stream.on('data', (data) => (child.said += data));
        child.ended = new Promise((resolve) => child.on('exit', (code, signal) => resolve(code ?? signal)));
        this.processes.push(child);
        return child;
    }

    async end(child, signal = 'SIGTERM') {
        child.kill(signal);
        const code = await child.ended;
        this.processes = this.processes.filter((one) => one !== child);
        return code;
    }

    ctl(...words) {
        return spawnSync(`${bin}/ominspectctl`, words, { env: this.environment, encoding: 'utf8' });
    }

    async startBus() {
        const config = `${source}/packaging/dbus/private-bus.conf`;
        this.bus = this.start('dbus-daemon', `--config-file=${config}`, `--address=${this.environment.KIVO_BUS_ADDRESS}`, '--nofork');
        await eventually('the bus', () => fs.existsSync(`${this.folder}/bus`));
    }

    startServer() {
        this.server = this.start(`${bin}/ominspect`);
        if (this.ctl('wait').status !== 0) throw new Error(this.server.said);
    }

    startOwner(file, item) {
        this.owner = this.start(`${bin}/ominspect-owner`, file);
        if (this.ctl('wait', item).status !== 0) throw new Error(this.owner.said);
    }

    // `xml`: its whole file; else `more` stands in the usual one.
    async startGateway(xml = '', more = '') {
        fs.writeFileSync(`${this.folder}/tokens`, `act helpdesk ${ACT}\nlook screen ${LOOK}\n`, { mode: 0o600 });
        fs.mkdirSync(`${this.folder}/applog`, { recursive: true });
        fs.writeFileSync(`${this.folder}/applog/one.log`, 'a line of a log\n');
        fs.writeFileSync(
            `${this.folder}/inspect_config.xml`,
            `<config><LogCollect><Log srcPath="${this.folder}/applog" dstPath="/data/inspect/diag/log/applog" timeout="5" isFolder="true"/></LogCollect></config>`,
        );
        fs.writeFileSync(
            `${this.folder}/gateway.xml`,
            xml ||
                `<Gateway refresh="1">
                     <History path="${this.folder}/history.db"/>
                     <Http tokens="${this.folder}/tokens">
                         <Unix path="${this.folder}/http.sock"/>
                         <Tcp address="127.0.0.1" port="0"/>
                     </Http>
                     <Collection folder="${this.folder}/collection" config="${this.folder}/inspect_config.xml"/>
                     ${more}
                 </Gateway>`,
        );
        this.gateway = this.start(`${bin}/ominspect-gateway`, '--config', `${this.folder}/gateway.xml`);
        await eventually('the gateway', () => {
            if (this.gateway.exitCode !== null) throw new Error(this.gateway.said);
            const port = /http:\/\/127\.0\.0\.1:(\d+)/.exec(this.gateway.said);
            this.port = port && Number(port[1]);
            return this.gateway.said.includes('http is ok');
        });
        this.address = `http://127.0.0.1:${this.port}`;
    }

    async startAll() {
        await this.startBus();
        this.startServer();
        this.startOwner(`${source}/tests/integration/owner.xml`, 'always_ok');
        await this.startGateway();
        await eventually('the items', async () => (await this.ask('GET', '/api/v1/items/always_ok')).status === 200);
    }

    // One request; its whole response.
    ask(method, road, { token = ACT, body, headers = {}, unix = false } = {}) {
        return new Promise((resolve, reject) => {
            const options = {
                method,
                path: road,
                headers: { ...(token ? { authorization: `Bearer ${token}` } : {}), ...headers },
                ...(unix ? { socketPath: `${this.folder}/http.sock` } : { host: '127.0.0.1', port: this.port }),
            };
            const content = body === undefined ? undefined : typeof body === 'string' ? body : JSON.stringify(body);
            if (content !== undefined && !options.headers['content-type']) options.headers['content-type'] = 'application/json';
            if (content !== undefined) options.headers['content-length'] = Buffer.byteLength(content);
            const request = http.request(options, (response) => {
                const parts = [];
                response.on('data', (part) => parts.push(part));
                response.on('end', () => {
                    const bytes = Buffer.concat(parts);
                    const text = bytes.toString('utf8');
                    const type = response.headers['content-type'] ?? '';
                    const json = type.includes('json') ? JSON.parse(text) : undefined;
                    resolve({ status: response.statusCode, headers: response.headers, type, text, json, bytes });
                });
            });
            request.on('error', reject);
            request.end(content);
        });
    }

    // The events from now on, or after a number.
    listen({ after, token = ACT } = {}) {
        const events = [];
        const stream = { events, isOver: false };
        const headers = { authorization: `Bearer ${token}`, ...(after === undefined ? {} : { 'last-event-id': after }) };
        stream.request = http.get({ host: '127.0.0.1', port: this.port, path: '/api/v1/events', headers }, (response) => {
            stream.status = response.statusCode;
            let text = '';
            response.on('data', (part) => {
                text += part;
                for (let end = text.indexOf('\n\n'); end >= 0; end = text.indexOf('\n\n')) {
                    const fields = Object.fromEntries(text.slice(0, end).split('\n').map((line) => line.split(/: (.*)/s)));
                    if (fields.event) events.push({ event: fields.event, id: fields.id, data: JSON.parse(fields.data) });
                    text = text.slice(end + 2);
                }
            });
            response.on('end', () => (stream.isOver = true));
            response.on('error', () => (stream.isOver = true));
        });
        stream.request.on('error', () => (stream.isOver = true));
        stream.next = (event, where = () => true) =>
            eventually(`the event ${event}`, () => events.find((one) => one.event === event && where(one.data)));
        return stream;
    }

    // What an operation that was accepted comes to.
    async outcome(accepted) {
        return eventually('the end of an operation', async () => {
            const { json } = await this.ask('GET', accepted.headers.location);
            return json.state === 'ended' && json;
        });
    }

    async close() {
        for (const child of [...this.processes].reverse()) {
            await this.end(child, child.killed ? 'SIGKILL' : 'SIGTERM');
        }
        fs.rmSync(this.folder, { recursive: true, force: true });
    }
}
