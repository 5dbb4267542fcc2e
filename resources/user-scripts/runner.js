// Runs one handler of a user's script: gjs -m runner.js URL-OF-SCRIPT. What comes and goes over
// descriptor 3 is described in interpreter_user_scripts.h.
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';

const CHANNEL = 3;

const {system} = imports;
const [url] = system.programArgs;
const file = Gio.File.new_for_uri(url);

// The engine's own function ends a process from a main loop's callback, but not from what follows an
// await. Whoever imports the module later gets this one.
const endProcess = system.exit;
system.exit = status => {
    GLib.idle_add(GLib.PRIORITY_HIGH, () => endProcess(status & 0xff));
    for (;;)
        GLib.MainContext.default().iteration(true);
};

function readRequest(channel) {
    const [, bytes] = channel.load_contents(null);
    const fields = new TextDecoder().decode(bytes).split('\0');
    fields.pop();
    const name = fields[0];
    const parameters = [];
    for (let at = 1; at < fields.length;) {
        if (fields[at] === 'list') {
            const end = at + 2 + Number(fields[at + 1]);
            parameters.push(fields.slice(at + 2, end));
            at = end;
        } else {
            parameters.push(fields[at + 1]);
            at += 2;
        }
    }
    return {name, parameters};
}

function resultFields(result) {
    const fits = value => typeof value === 'string' && !value.includes('\0');
    if (fits(result))
        return ['string', result];
    if (Array.isArray(result) && result.every(fits))
        return ['list', `${result.length}`, ...result];
    return ['nothing'];
}

function description(error) {
    try {
        return `${error}`.replaceAll('\0', '\\0');
    } catch {
        return 'an error without a text';
    }
}

// What the engine calls the text of a script that is no module.
function isEvaluated(fileName) {
    return fileName.startsWith(`${import.meta.url} line `) && fileName.split(' > ').length === 2;
}

function lineIn(error, place) {
    const fileName = error?.fileName;
    if (typeof fileName !== 'string')
        return '';
    return fileName === place || isEvaluated(fileName) ? `${error.lineNumber}` : '';
}

// A text that can be the body of a function imports and exports nothing.
function isClassic(source) {
    try {
        return new Function(source) !== null;
    } catch {
        return false;
    }
}

// A name that can be imported: URLs of names that are no text cannot.
function importable(stream) {
    try {
        decodeURIComponent(url);
        return url;
    } catch {
        return `file:///proc/self/fd/${stream.get_fd()}`;
    }
}

async function handlerNamed(name, place) {
    const [, bytes] = file.load_contents(null);
    const source = new TextDecoder().decode(bytes).replace(/^#!/, '//');
    if (!isClassic(source))
        return (await import(place))[name];
    const isName = /^[A-Za-z_$][\w$]*$/.test(name);
    return (0, eval)(`${source}\n;${isName ? `typeof ${name} === 'undefined' ? undefined : ${name}` : ''}`);
}

async function run({name, parameters}) {
    let place = url;
    try {
        const stream = file.read(null);
        place = importable(stream);
        const handler = await handlerNamed(name, place);
        if (typeof handler !== 'function')
            return ['missing'];
        return ['done', ...resultFields(await handler(...parameters))];
    } catch (error) {
        const text = description(error);
        printerr(`${text}\n${error?.stack ?? ''}`);
        return ['error', text, lineIn(error, place)];
    }
}

const channel = Gio.File.new_for_path(`/proc/self/fd/${CHANNEL}`);
const report = channel.append_to(Gio.FileCreateFlags.NONE, null);
const request = readRequest(channel);
GLib.close(CHANNEL);
try {
    imports.searchPath.unshift(file.get_parent().get_path());
} catch {
    // A folder whose name is no text cannot be searched.
}

const loop = new GLib.MainLoop(null, false);
let status = 1;
run(request).then(fields => {
    report.write_all(new TextEncoder().encode(fields.map(field => `${field}\0`).join('')), null);
    status = fields[0] === 'done' ? 0 : 1;
}).catch(error => printerr(description(error))).finally(() => loop.quit());
loop.run();
endProcess(status);
