// The messages of a conversation: what belongs together, and which of them are shown.
'use strict';

const bot_members = new Set(['bot', 'bots', 'uuid', 'found']);
const tokens = /"(?:[^"\\]|\\.)*"|[{}[\],:]|[^\s{}[\],:"]+/gs; // of JSON

/// The Bots that a parsed message names, as text. Beside "zorvin", "uuid" is not a Bot's but the Zorvin's.
function bots_in(value, found = new Set(), relevant = false) {
    if (Array.isArray(value)) {
        value.forEach(one => bots_in(one, found, relevant));
    } else if (value !== null && typeof value === 'object') {
        const is_bot = name => bot_members.has(name) && !(name === 'uuid' && 'zorvin' in value);
        Object.entries(value).forEach(([name, one]) => bots_in(one, found, is_bot(name)));
    } else if (relevant && (typeof value === 'string' || typeof value === 'number')) {
        found.add(String(value));
    }
    return found;
}

/// Integers of 16 and more digits become texts: numbers cannot hold all of them.
function parse(text) {
    try {
        const parsed = JSON.parse(text);
        const quoted = () => text.replace(tokens, token => (/^\d{16,}$/.test(token) ? `"${token}"` : token));
        return /\d{16}/.test(text) ? JSON.parse(quoted()) : parsed;
    } catch {
        return undefined;
    }
}

/// Bytes that are not UTF-8 show as replacement characters.
function text_of(line) {
    if (line.base64 === undefined) {
        return String(line.text ?? '');
    }
    const bytes = Uint8Array.from(atob(line.base64), c => c.charCodeAt(0));
    return new TextDecoder().decode(bytes);
}

/// For lines that csi_lab did not annotate.
function label_from(row) {
    const message = row.parsed;
    if (row.line.event) {
        return row.line.event;
    }
    if (message === null || typeof message !== 'object') {
        return row.text ? 'not JSON' : row.line.method === 'GET' && row.out ? 'poll' : String(row.line.status ?? 'empty');
    }
    const words = [message.cmd ?? Object.keys(message)[0], ...bots_in(message), message.engineType];
    return words.filter(word => word !== undefined).join(' ');
}

const same_request = (one, other) =>
    one.text === other.text && one.line.method === other.line.method && one.line.path === other.line.path;

class Conversation {
    constructor(limit = Infinity) {
        this.limit = limit;        // of rows
        this.rows = [];
        this.gone = 0;             // rows that left
        this.peers = new Set();    // that took part
        this.bots = new Set();     // that were named
        this.open = new Map();     // requests without an answer, by peer
        this.lost = new Map();     // the latest request that timed out, by peer
        this.answered = new Map(); // the latest request that was answered, by peer
        this.hidden = new Set(['log']); // peers, and kinds of notes
        this.words = [];
        this.bot = '';
        this.fold = true;
        this.view = []; // what is shown: rows, and folds of polls
    }

    /// Takes a line of a recording, such a line with its annotation, or a note. Returns the row.
    add(item) {
        const row = item.note ? this.note_row(item) : this.message_row(item);
        row.number = this.gone + this.rows.length;
        row.words = [row.label, row.name, row.peer, row.text, row.line?.path].join(' ').toLowerCase();
        this.rows.push(row);
        this.place(row);
        if (this.rows.length > this.limit) { // the oldest leave; before all others, polls that brought nothing
            const leaving = new Set([...this.rows].sort((a, b) => Boolean(b.idle) - Boolean(a.idle)).slice(0, this.limit / 10));
            this.rows = this.rows.filter(one => !leaving.has(one));
            this.gone += leaving.size;
            this.rebuild();
        }
        return row;
    }

    note_row(item) {
        return {note: item.note, time: item.time, text: item.text, label: item.text, peer: item.note,
                bots: new Set(), breaches: [], fails: false};
    }

    message_row(item) {
        const line = item.line ?? item;
        const row = {line, time: line.time ?? 0, out: line.from === 'daemon', text: text_of(line), name: item.name ?? '',
                     title: item.title, description: item.description, breaches: item.breaches ?? []};
        const peer = row.out ? line.to : line.from;
        row.peer = peer === 'core' ? 'core ' + (line.address ?? '127.0.0.1') : String(peer);
        row.parsed = parse(row.text);
        row.label = item.label ?? label_from(row);
        row.bots = bots_in(row.parsed);
        this.pair(row);
        const says_always = row.name === 'reply/start' && row.parsed?.reason === undefined; // "success":false, also if it works
        row.refused = line.status >= 400 || (row.parsed?.success === false && !says_always);
        row.fails = row.breaches.length > 0 || Boolean(line.event) || row.refused;
        row.bots.forEach(bot => this.bots.add(bot));
        this.peers.add(row.peer);
        return row;
    }

    /// Ties an answer to its request: the oldest of that peer that has none.
    pair(row) {
        const open = this.open.get(row.peer) ?? [];
        this.open.set(row.peer, open);
        if (row.out) {
            const lost = this.lost.get(row.peer);
            const first = open.find(one => same_request(one, row));
            row.repeated = Boolean(first) || (lost !== undefined && same_request(lost, row));
            if (!first) {
                open.push(row);
            }
            return;
        }
        const request = open.shift();
        row.request = request ?? this.answered.get(row.peer);
        if (row.request === undefined) {
            return;
        }
        row.repeated = request === undefined;
        row.request.answer ??= row;
        this.answered.set(row.peer, row.request);
        row.request.bots.forEach(bot => row.bots.add(bot));
        if (row.line.event === 'timeout') {
            this.lost.set(row.peer, row.request);
        } else {
            this.lost.delete(row.peer);
        }
        row.idle = row.line.method === 'GET' && row.text === '' && !row.line.event && !(row.line.status >= 400);
        row.request.idle = row.idle;
    }

    shows(row) {
        return !this.hidden.has(row.peer) && (this.bot === '' || row.bots.has(this.bot)) &&
            this.words.every(word => word.startsWith('-') && word.length > 1
                ? !row.words.includes(word.slice(1)) : row.words.includes(word));
    }

    /// Adds the row to the view, if it is shown.
    place(row) {
        const folds = this.fold && row.idle;
        if (!this.shows(row) || (folds && row.out)) {
            return;
        }
        if (!folds) {
            this.view.push(row);
            return;
        }
        const recent = this.view.slice(-50);
        if (recent.includes(row.request)) { // it was shown until now
            this.view.splice(recent.indexOf(row.request) - recent.length, 1);
        }
        let fold = this.view[this.view.length - 1];
        if (!fold?.polls) {
            fold = {polls: 0, number: row.number, time: row.request.time, peer: row.peer, out: true, fails: false, rows: []};
            this.view.push(fold);
        }
        Object.assign(fold, {polls: fold.polls + 1, until: row.time, last: row.number}).rows.push(row.request, row);
    }

    rebuild() {
        this.view = [];
        this.rows.forEach(row => this.place(row));
    }

    /// The index in the view of the first entry with this number or a later one.
    index_of(number) {
        let low = 0;
        let high = this.view.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if ((this.view[middle].last ?? this.view[middle].number) < number) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return low;
    }

    /// The lifelines from left to right.
    lanes() {
        const order = peer => (peer === 'server' ? 0 : peer === 'fusion' ? 3 : 2);
        const octets = peer => peer.replace(/\d+/g, digits => digits.padStart(3, '0'));
        const peers = [...this.peers, 'server'].filter((peer, index, all) => all.indexOf(peer) === index);
        peers.sort((a, b) => order(a) - order(b) || octets(a).localeCompare(octets(b)));
        return [peers[0], 'daemon', ...peers.slice(1)];
    }
}

/// A JSON text in lines with an indent each, and the JSON pointer of what a line shows. The text is not parsed: numbers
/// keep all their digits.
function pretty(text) {
    const lines = [];
    const stack = []; // of the open objects and arrays
    let line = '';
    const pointer = () => stack.map(one => '/' + one.key).join('');
    const end = depth => {
        if (line !== '') {
            lines.push({text: '    '.repeat(depth) + line, pointer: pointer()});
        }
        line = '';
    };
    for (const [token] of text.matchAll(tokens)) {
        const inner = stack[stack.length - 1];
        if (token === '{' || token === '[') {
            line += token;
            end(stack.length);
            stack.push({key: token === '[' ? 0 : '', array: token === '['});
        } else if (token === '}' || token === ']') {
            const empty = line === '' && (inner.key === '' || inner.key === 0);
            end(stack.length);
            stack.pop();
            line = (empty ? lines.pop().text.trimStart() : '') + token;
        } else if (token === ',') {
            line += token;
            end(stack.length);
            inner.key = inner.array ? inner.key + 1 : '';
        } else if (token === ':') {
            inner.key = JSON.parse(line);
            line += ': ';
        } else {
            line += token;
        }
    }
    end(stack.length);
    return lines;
}

/// The items of a recording file: one JSON object per line.
function read_lines(text) {
    return text.split('\n').map(parse).filter(item => item?.from !== undefined && item.to !== undefined);
}
