// The page in a real Chromium: what a person sees and does. With SCREENSHOTS=FOLDER it leaves pictures of the main views.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import { after, before, test } from 'node:test';
import puppeteer from 'puppeteer-core';
import { ACT, LOOK, Terminal, eventually } from './system.mjs';

const terminal = new Terminal();
const axe = fs.readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const requests = [];
let browser;
let page;

// A page of its own in a context of its own, logged in.
async function open(token = ACT, width = 1200, scheme = 'light') {
    const context = await browser.createBrowserContext();
    const one = await context.newPage();
    await one.setViewport({ width, height: 800 });
    await one.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }]);
    one.on('pageerror', (error) => assert.fail(`the page: ${error}`));
    one.on('console', (message) => message.text().includes('Content Security Policy') && assert.fail(message.text()));
    one.on('response', async (response) => requests.push(response));
    await one.goto(`${terminal.address}/#token=${token}`);
    await one.waitForSelector('li[data-name=always_ok]');
    return one;
}
const textOf = (selector, one = page) => one.$eval(selector, (element) => element.textContent);
const shows = (selector, pattern, one = page) =>
    eventually(`${pattern} in ${selector}`, async () => pattern.test(await textOf(selector, one).catch(() => '')));
// Not by the mouse: rows move as results come in above them.
const press = (selector) => page.$eval(selector, (element) => element.click());
const item = (name) => `li[data-name=${name}]`;
async function picture(name, one = page) {
    await one.evaluate(() => scrollTo(0, 0));
    if (process.env.SCREENSHOTS) await one.screenshot({ path: `${process.env.SCREENSHOTS}/gateway-${name}.png` });
}
async function violations(one = page) {
    // The page's own policy lets no other script in, which is what it is for; the checker comes through the debugger.
    const session = await one.createCDPSession();
    const run = async (expression) => (await session.send('Runtime.evaluate', { expression, awaitPromise: true, returnByValue: true })).result.value;
    await run(axe);
    const found = await run('axe.run().then((result) => JSON.stringify(result.violations.map((one) => [one.id, one.nodes.map((node) => node.html)])))');
    return JSON.parse(found);
}

before(async () => {
    await terminal.startAll();
    browser = await puppeteer.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-dev-shm-usage'] });
    page = await open();
});
after(async () => {
    await browser?.close();
    await terminal.close();
});

test('nothing comes from elsewhere, and the page is small', async (context) => {
    assert.ok(requests.every((one) => one.url().startsWith(terminal.address)));
    // As a browser that has been here before, with all that goes over the line.
    const one = await page.browserContext().newPage();
    const network = await one.createCDPSession();
    await network.send('Network.enable');
    const loaded = [];
    let bytes = 0;
    network.on('Network.requestWillBeSent', (event) => loaded.push(event.request.url));
    network.on('Network.dataReceived', (event) => (bytes += event.dataLength));
    network.on('Network.responseReceivedExtraInfo', (event) => (bytes += event.headersText?.length ?? 0));
    await one.goto(terminal.address);
    await one.waitForSelector('li[data-name=always_ok]');
    await shows('#health', /history/, one);
    const roads = loaded.filter((url) => !url.startsWith('data:')).map((url) => url.slice(terminal.address.length));
    assert.deepEqual(roads.sort(), ['/', '/api/v1/events', '/api/v1/picture', '/main.js', '/style.css']);
    context.diagnostic(`${roads.length} requests, ${bytes} bytes`);
    assert.ok(bytes > 20000 && bytes <= 150000, `${bytes} bytes`);
    await one.close();
    assert.equal(await page.evaluate(() => location.hash), '', 'the token is gone from the address');
});

test('one logs in by hand, and out', async () => {
    const context = await browser.createBrowserContext();
    const one = await context.newPage();
    await one.goto(terminal.address);
    await one.waitForSelector('#login:not([hidden])');
    assert.deepEqual(await violations(one), []);
    await one.type('#token', 'no-such-token-of-anybody');
    await one.keyboard.press('Enter');
    await shows('#login-error', /there is no such token/, one);
    await one.type('#token', LOOK);
    await one.keyboard.press('Enter');
    await one.waitForSelector('li[data-name=always_ok]');
    assert.ok(await one.$eval('li[data-name=always_ok] > button', (button) => button.disabled), 'who looks cannot run');
    await one.click('#logout');
    await one.waitForSelector('#login:not([hidden])');
    await context.close();
});

test('items are run, and wrong results come first', async () => {
    await press(`${item('always_ok')} > button`);
    await shows(item('always_ok'), /✓ success fine/);
    await press(`${item('always_critical')} > button`);
    await shows('#now', /1 of 2 results say that something is wrong:always_critical ✗ fail it is broken/);
    await shows('#past', /always_critical✗ fail it is broken \(helpdesk\)/);
});

test('texts that contain markup stay text', async () => {
    const argument = '<img src=x onerror="window.wasRun=1"><b>bold</b>';
    await terminal.outcome(await terminal.ask('POST', '/api/v1/items/say_argument/run', { body: { argument } }));
    await shows(item('say_argument'), /<img src=x onerror="window.wasRun=1"><b>bold<\/b>/);
    assert.equal(await page.$('main img, main b'), null);
    assert.equal(await page.evaluate(() => window.wasRun), undefined);
});

test('a run is stopped, seen in two browsers', async () => {
    const other = await open(LOOK);
    await press(`${item('long_run')} > button`);
    await shows(item('long_run'), /▶ running/);
    await shows(item('long_run'), /▶ running/, other);
    await shows('#operations', /▶ run long_run \(helpdesk\): goes on/);
    await press(`${item('long_run')} > button`);
    await shows(item('long_run'), /✗ /);
    await shows(item('long_run'), /✗ /, other);
    await other.browserContext().close();
});

test('a choice is run as a group', async () => {
    await press(`${item('always_ok')} input`);
    await press(`${item('later_ok')} input`);
    await press('#run-chosen');
    await shows(item('later_ok'), /✓ success late but fine/);
    await shows('#operations', /group always_ok, later_ok \(helpdesk\): ended, 2 of 2 done ✓ success ✓ success/);
});

test('search and filter leave what is asked for', async () => {
    const names = () => page.$$eval('li[data-name]', (rows) => rows.map((row) => row.dataset.name));
    await page.type('#search', 'late but');
    assert.deepEqual(await names(), ['later_ok']);
    await page.$eval('#search', (input) => (input.value = ''));
    await page.select('#filter', 'owned');
    assert.ok((await names()).includes('always_ok') && !(await names()).includes('bsp_mainboard_ft'));
    await page.select('#filter', 'all');
    assert.ok((await names()).includes('bsp_mainboard_ft'));
});

test("an item's history is a strip and a plot, by keyboard", async () => {
    await page.focus(`${item('always_ok')} .name button`);
    await page.keyboard.press('Enter');
    await shows('#detail .strip', /✓✓/);
    assert.equal(await page.$$eval('#detail svg polyline', (lines) => lines.length), 1);
    assert.deepEqual(await violations(), []);
    await picture('history');
    await page.keyboard.press('Escape');
    await page.waitForSelector('#detail:not([open])');
});

test('logs are collected and can be downloaded', async () => {
    await press('#collect');
    await shows('#collection', /✓ Collected .* KiB/);
    const size = await page.evaluate(async () => (await (await fetch(document.querySelector('#collection a').href)).arrayBuffer()).byteLength);
    assert.ok(size > 100);
});

test('light and dark, narrow and wide: nothing is out of reach', async () => {
    assert.deepEqual(await violations(), []);
    await picture('overview');
    for (const [width, scheme] of [[360, 'dark'], [1600, 'dark'], [360, 'light']]) {
        const one = await open(ACT, width, scheme);
        await shows('#past', /always_ok/, one);
        assert.deepEqual(await violations(one), [], `${width} ${scheme}`);
        const over = await one.evaluate(() => document.documentElement.scrollWidth - innerWidth);
        assert.ok(over <= 0, `${over} px too wide at ${width}`);
        if (width === 360 && scheme === 'dark') await picture('narrow-dark', one);
        await one.browserContext().close();
    }
});

test('the server leaves and comes back', async () => {
    await terminal.end(terminal.server, 'SIGKILL');
    await shows('#now', /The inspection server is not there/);
    await shows('#connection', /The server is not there/);
    await shows('#past', /the server left/);
    assert.ok(await page.$eval(`${item('always_ok')} > button`, (button) => button.disabled));
    terminal.startServer();
    await shows('#connection', /The server is there/);
});

test('a lost connection is told with the age of the picture, and found again', async () => {
    await terminal.end(terminal.gateway, 'SIGKILL');
    await shows('#connection', /The connection is lost: this picture is of .* ago/);
    const same = fs.readFileSync(`${terminal.folder}/gateway.xml`, 'utf8').replace('port="0"', `port="${terminal.port}"`);
    await terminal.startGateway(same);
    // Sessions end with the gateway: the page asks for a token again.
    await page.waitForSelector('#login:not([hidden])', { timeout: 60000 });
    await page.type('#token', ACT);
    await page.keyboard.press('Enter');
    await shows('#connection', /The server is there/);
});
