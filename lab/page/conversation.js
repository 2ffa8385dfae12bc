// The messages of a conversation: what belongs together, and which of them are shown.
'use strict';

const most_rows = 60000; // older ones leave the page
const bot_members = new Set(['bot', 'bots', 'uuid', 'found']);

/// The Bots that a parsed message names, as text.
function bots_in(value, found = new Set(), relevant = false) {
    if (Array.isArray(value)) {
        value.forEach(one => bots_in(one, found, relevant));
    } else if (value !== null && typeof value === 'object') {
        Object.entries(value).forEach(([name, one]) => bots_in(one, found, bot_members.has(name)));
    } else if (relevant && (typeof value === 'string' || typeof value === 'number')) {
        found.add(String(value));
    }
    return found;
}

function parse(text) {
    try {
        return JSON.parse(text);
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
    constructor() {
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
        if (this.rows.length > most_rows) {
            this.rows.splice(0, most_rows / 10);
            this.gone += most_rows / 10;
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
        row.refused = line.status >= 400 || row.parsed?.success === false;
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
        for (let at = this.view.length - 1; at >= Math.max(0, this.view.length - 50); --at) {
            if (this.view[at] === row.request) { // it was shown until now
                this.view.splice(at, 1);
                break;
            }
        }
        const last = this.view[this.view.length - 1];
        if (last?.polls) {
            last.polls += 1;
            last.until = row.time;
            last.last = row.number;
        } else {
            this.view.push({polls: 1, number: row.number, last: row.number, time: row.request.time, until: row.time,
                            peer: row.peer, out: true, fails: false});
        }
    }

    rebuild() {
        this.view = [];
        this.rows.forEach(row => this.place(row));
    }

    filter(text) {
        this.words = text.toLowerCase().split(/\s+/).filter(word => word !== '');
        this.rebuild();
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

    /// The next entry from this one on, in steps of 1 or -1, that satisfies the predicate; -1: none.
    next(index, step, wanted) {
        for (let at = index + step; at >= 0 && at < this.view.length; at += step) {
            if (wanted(this.view[at])) {
                return at;
            }
        }
        return -1;
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
    for (const [token] of text.matchAll(/"(?:[^"\\]|\\.)*"|[{}[\],:]|[^\s{}[\],:"]+/gs)) {
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
