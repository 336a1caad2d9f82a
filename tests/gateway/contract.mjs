// The description of the interface, as a judge of responses.
import { Validator } from '@seriousme/openapi-schema-validator';
import Ajv2020 from 'ajv/dist/2020.js';
import addFormats from 'ajv-formats';
import assert from 'node:assert/strict';

export async function isValid(document) {
    const { valid, errors } = await new Validator().validate(structuredClone(document));
    assert.ok(valid, JSON.stringify(errors, null, 1));
}

export class Contract {
    constructor(document) {
        this.document = document;
        this.ajv = addFormats(new Ajv2020({ strict: false, allErrors: true }));
        this.ajv.addSchema(document, 'api');
        this.seen = new Set();
    }

    // A path of the document that a request's path goes along.
    roadOf(path) {
        const fits = (road) =>
            new RegExp(`^${road.replace(/\{[^}]+\}/g, '[^/]+')}$`).test(path.replace(/\?.*/, ''));
        return Object.keys(this.document.paths).find((road) => road === path) ?? Object.keys(this.document.paths).find(fits);
    }

    check(method, path, response) {
        const road = this.roadOf(path);
        assert.ok(road, `${path} is not described`);
        const operation = this.document.paths[road][method.toLowerCase()];
        if (!operation) {
            assert.equal(response.status, 405, `${method} ${road} is not described`);
            return;
        }
        const described = operation.responses[response.status];
        assert.ok(described, `${method} ${road} answers ${response.status}, which is not described: ${response.text}`);
        const type = response.type.replace(/;.*/, '');
        const content = described.content[type];
        assert.ok(content, `${method} ${road} answers ${type}, which is not described`);
        this.seen.add(`${method.toLowerCase()} ${road}`);
        if (!response.json) return;
        const pointer = ['paths', road, method.toLowerCase(), 'responses', response.status, 'content', type, 'schema']
            .map((part) => encodeURIComponent(String(part).replace(/~/g, '~0').replace(/\//g, '~1')))
            .join('/');
        const validate = this.ajv.getSchema(`api#/${pointer}`);
        assert.ok(validate(response.json), `${method} ${road}: ${JSON.stringify(validate.errors)}\n${response.text}`);
    }
}
