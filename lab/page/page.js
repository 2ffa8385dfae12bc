// The page around the chart: the selected message, what is typed, and the lab that the page belongs to, if any.

const live = new Conversation(60000); // what the lab sends; a file that is opened gets a conversation of its own
const chart = new Chart(live);
let held = null;                 // while paused: items that are not shown yet
let facts = null;                // about the lab
let state = null;                // of its peers
let silent_for = null;           // seconds since the daemon last sent something
let now = 0;                     // the lab's time

// The selected message

let shown = {}; // the entry, and the answer that it had by then

function show_message(entry) {
    const panel = by_id('message');
    shown = {entry, answer: entry.answer};
    if (entry.polls || entry.note) {
        panel.replaceChildren(make('h2', {}, entry.polls ? chart.label_of(entry) : entry.note),
                              make('p', {}, entry.polls ? `without a command, from ${seconds(entry.time)} s to ${seconds(entry.until)} s`
                                                        : `${seconds(entry.time)} s`),
                              entry.note ? make('pre', {}, entry.text) : '');
        return;
    }
    const {line} = entry;
    const way = entry.out ? `daemon → ${entry.peer}` : `${entry.peer} → daemon`;
    const http = [line.method, line.path, line.status].filter(word => word !== undefined).join(' ');
    panel.replaceChildren(make('h2', {}, entry.label),
                          make('p', {className: entry.peer.split(' ')[0]}, `${seconds(entry.time)} s   ${way}   ${http}`),
                          ...contract_of(entry), ...event_of(entry), ...links_of(entry), json_of(entry));
}

function contract_of(entry) {
    const breaches = entry.breaches.map(one => make(
        'li', {}, `${one.member || 'the message'} must be ${one.wanted}${one.fatal ? '; ends the daemon' : ''}`));
    return [
        entry.name === '' ? '' : make('p', {}, make('code', {}, entry.name), entry.title ? ' ' + entry.title : ''),
        entry.description ? make('p', {className: 'description'}, entry.description) : '',
        breaches.length > 0 ? make('ul', {className: 'breaches'}, ...breaches) : '',
    ];
}

function event_of(entry) {
    const meaning = {timeout: 'The peer did not answer.', cut: 'The response broke off in the body.'}[entry.line.event];
    return [
        meaning ? make('p', {className: 'lost'}, meaning) : '',
        entry.repeated ? make('p', {className: 'repeated'}, entry.out ? 'The daemon sent this request before.' : 'The peer answered before.') : '',
    ];
}

function links_of(entry) {
    const other = entry.request ?? entry.answer;
    if (other === undefined) {
        return [];
    }
    const button = make('button', {}, `${entry.out ? 'Answer' : 'Request'} (r)`);
    button.addEventListener('click', () => go_to(other));
    const ms = Math.abs(other.time - entry.time) * 1000;
    return [make('p', {}, button, ` ${entry.out ? 'after' : 'answered after'} ${ms.toFixed(0)} ms`)];
}

function json_of(entry) {
    if (entry.text === '') {
        return make('p', {className: 'description'}, 'The message is empty.');
    }
    if (entry.parsed === undefined) {
        return make('pre', {}, entry.text);
    }
    const wrong = new Set(entry.breaches.map(one => one.member));
    const lines = pretty(entry.text).map(({text, pointer}) => make(
        'span', {className: wrong.has(pointer) && pointer !== '' ? 'wrong' : ''}, text + '\n'));
    return make('pre', {}, ...lines);
}

function go_to(row) {
    const at = chart.conversation.view.indexOf(row);
    if (at >= 0) {
        chart.select(at);
    } else {
        show_message(row); // filtered out
    }
}

chart.on_select = entry => {
    show_message(entry);
    show_tab('message');
};
chart.on_draw = () => {
    const {rows, view, gone} = chart.conversation;
    by_id('count').textContent = `${view.length} shown of ${rows.length}` + (gone > 0 ? `, ${gone} left the page` : '') +
        (held ? `, ${held.length} held` : '');
    if (shown.entry?.answer !== shown.answer) {
        show_message(shown.entry); // now with its answer
    }
};

function show_tab(name) {
    document.querySelectorAll('[role=tab]').forEach(tab => {
        tab.setAttribute('aria-selected', String(tab.dataset.tab === name));
        by_id(tab.dataset.tab).hidden = tab.dataset.tab !== name;
    });
    by_id('terminal').scrollTop = by_id('terminal').scrollHeight;
    refresh_panels();
}

// The bar at the top

function refresh_bots() {
    const select = by_id('bot');
    if (select.length - 1 === chart.conversation.bots.size) {
        return;
    }
    const bots = [...chart.conversation.bots].sort((a, b) => a.localeCompare(b, 'en', {numeric: true}));
    select.replaceChildren(select.options[0], ...bots.map(bot => new Option('Bot ' + bot, bot, false, bot === chart.conversation.bot)));
}

function set_paused(paused) {
    by_id('pause').setAttribute('aria-pressed', String(paused));
    by_id('pause').textContent = paused ? 'Resume' : 'Pause';
    const waiting = held ?? [];
    held = paused ? waiting : null;
    if (!paused) {
        waiting.forEach(item => live.add(item));
    }
    chart.redraw();
}

function export_chosen() {
    const text = chart.chosen().map(row => JSON.stringify(row.line) + '\n').join('');
    const url = URL.createObjectURL(new Blob([text], {type: 'application/x-ndjson'}));
    make('a', {href: url, download: 'selected.jsonl'}).click();
    setTimeout(() => URL.revokeObjectURL(url), 10000);
}

const find_next = step => chart.jump(step, entry => chart.found !== '' && Boolean(entry.words?.includes(chart.found)));
const find_failure = step => chart.jump(step, entry => entry.fails);

/// The bar keeps its settings, except a Bot that this conversation does not name.
function show_conversation(conversation) {
    const {words, fold, hidden, bot} = chart.conversation;
    Object.assign(conversation, {words, fold, hidden, bot: conversation.bots.has(bot) ? bot : ''}).rebuild();
    chart.show(conversation);
    by_id('live').hidden = conversation === live || facts?.mode !== 'live';
    by_id('bot').length = 1;
    refresh_bots();
}

function open_conversation(items, name) {
    const opened = new Conversation();
    items.forEach(item => opened.add(item));
    show_conversation(opened);
    chart.following = false;
    by_id('daemon').textContent = name;
}

/// The lab says what the contract says of the lines; without a lab they are shown as they are.
async function open_file(file) {
    const text = await file.text();
    const failure = {error: file.size > 16 << 20 ? 'too large to judge' : 'not judged, csi_lab is away'};
    const {items, error} = facts === null ? {} : await post('recording', text, 'application/x-ndjson').catch(() => failure);
    open_conversation(items ?? read_lines(text), file.name + (error ? ': ' + error : ''));
}

// The lab

async function post(path, body, type) {
    const response = await fetch(path, {method: 'POST', headers: {'Content-Type': type}, body});
    return response.json();
}

/// False, and the terminal says why, if the lab did not take the line.
async function execute(line) {
    const {error} = await post('command', JSON.stringify({line}), 'application/json').catch(() => ({error: 'csi_lab is away'}));
    if (error) {
        show_note({note: 'error', text: `not sent: ${line}: ${error}`});
        refresh_panels();
    }
    return !error;
}

function show_note(item) {
    const terminal = by_id('terminal');
    const at_end = terminal.scrollTop + terminal.clientHeight > terminal.scrollHeight - row_height;
    terminal.append(make('p', {className: item.note}, item.note === 'typed' ? note_text(item) : item.text));
    while (terminal.childElementCount > 500) {
        terminal.firstChild.remove();
    }
    terminal.scrollTop = at_end ? terminal.scrollHeight : terminal.scrollTop;
}

function take(batch) {
    batch.items.filter(item => item.note).forEach(show_note);
    batch.items.forEach(item => (held ? held.push(item) : live.add(item)));
    note_scan(batch.items);
    refresh_state(batch);
    const {cores = [], fusion} = batch.state ?? {};
    [...cores.map(core => core.name.replace(':', ' ')), ...(fusion ? ['fusion'] : [])].forEach(peer => live.peers.add(peer));
    refresh_bots();
    chart.redraw();
}

async function follow_feed() {
    for (let from = 0, run = '', version = 0;;) {
        try {
            const batch = await (await fetch(`feed?from=${from}&version=${version}&run=${run}`)).json();
            if (batch.run !== run && run !== '') {
                by_id('reload').hidden = false; // the rows of this one stay
                Object.assign(by_id('daemon'), {textContent: 'this lab has ended', className: 'away'});
                return;
            }
            ({run, version, next: from} = batch);
            take(batch);
            await new Promise(wake => setTimeout(wake, 150)); // several messages at once
        } catch {
            by_id('daemon').textContent = 'csi_lab is away';
            by_id('daemon').className = 'away';
            await new Promise(wake => setTimeout(wake, 1000));
        }
    }
}

// The installation now

const scan = {since: 0, latest: -Infinity, found: new Set()};

/// A scan asks all core services for the active Bots, at once and then every second.
function note_scan(items) {
    const pause = 2.5; // seconds: longer than between two requests, even if one is repeated
    for (const {line} of items) {
        const message = line && parse(line.text);
        if (line?.to === 'core' && message?.cmd === 'active_bots') {
            if (line.time - scan.latest > pause) {
                scan.since = line.time;
                scan.found.clear();
            }
            scan.latest = line.time;
        } else if (line?.from === 'core' && Array.isArray(message?.bots)) {
            message.bots.filter(bot => bot?.count > 0).forEach(bot => scan.found.add(bot.uuid));
        }
    }
}

/// A batch brings the state only if it has changed.
function refresh_state(batch) {
    ({silent_for, now} = batch);
    if (batch.state) {
        state = batch.state;
        state.bots = new Map(state.cores.flatMap(core => core.bots).map(bot => [bot.uuid, bot]));
        refresh_panels();
    } else {
        by_id('scan')?.replaceChildren(...scan_of());
    }
    refresh_badge();
}

function refresh_badge() {
    if (chart.conversation !== live || !state) {
        return;
    }
    const attached = state.server?.attached;
    const silent = silent_for > 10 ? `, nothing sent for ${Math.round(silent_for)} s` : '';
    const badge = by_id('daemon');
    badge.className = attached && !silent ? 'attached' : 'away';
    badge.textContent = state.daemon_runs === false ? 'daemon stopped' : silent_for === null ? 'nothing from the daemon yet'
        : `${attached ? `Zorvin ${attached} attached` : state.server ? 'daemon not attached' : 'daemon there'}${silent}`;
}

/// Those in sight.
function refresh_panels() {
    if (state && !by_id('installation').hidden) {
        by_id('installation').replaceChildren(
            ...state.cores.map(zorvin_table), make('div', {id: 'scan'}, ...scan_of()), ...others_of());
    }
    if (state && !by_id('faults').hidden) {
        refresh_faults();
    }
}

function zorvin_table(core) {
    const head = make('tr', {}, ...['Bot', 'Sounding', 'Found', 'Engines'].map(text => make('th', {}, text)));
    const rows = core.bots.map(bot => make(
        'tr', {className: bot.absent ? 'absent' : bot.count > 0 ? 'heard' : ''}, make('td', {}, bot.uuid),
        make('td', {}, bot.rate > 0 ? `rate ${bot.rate}` : '–'),
        make('td', {}, bot.absent ? 'absent' : bot.count > 0 ? `found, ${bot.count} measurements` : 'not found'),
        make('td', {}, [...core.engines, ...state.fusion?.engines ?? []].filter(one => one.bot === bot.uuid).map(one => one.type).join(', ') || '–')));
    const interfaces = core.interfaces.join(', ') || 'no interface';
    return make('section', {}, make('h2', {className: 'core'}, `Zorvin ${core.name.replace('core:', '')}`),
                make('p', {}, `${interfaces}${trouble_of(core)}`), make('table', {}, head, ...rows));
}

function trouble_of(peer) {
    const words = [peer.running ? '' : 'stopped', peer.silent ? 'silent' : '', peer.wrong === 'off' ? '' : 'wrong: ' + peer.wrong,
                   peer.delay > 0 ? `delay ${peer.delay} ms` : ''];
    return words.filter(word => word !== '').map(word => ', ' + word).join('');
}

function scan_of() {
    const all = state.bots.size;
    const running = now - scan.latest < 2 && scan.found.size < all;
    const count = `${scan.found.size} of ${all} Bots found`;
    return [make('h2', {}, 'Scan'),
            running ? make('p', {}, make('progress', {max: all, value: scan.found.size}), ` ${count} in ${(now - scan.since).toFixed(0)} s`)
                    : make('p', {}, scan.latest < 0 ? 'There was none yet.' : `The latest began at ${seconds(scan.since)} s: ${count}`)];
}

function others_of() {
    const {server, fusion} = state;
    const engines = fusion?.engines.map(one => `${one.type} for ${one.bot}`).join(', ');
    return [
        server ? make('p', {}, `Server at port ${server.port}: ${server.attached ? `Zorvin ${server.attached} attached` : 'nothing attached'}, ` +
                               `${server.queued} commands queued${trouble_of(server)}`) : '',
        fusion ? make('p', {}, `Fusion daemon: ${engines || 'no engine runs'}${trouble_of(fusion)}`) : '',
    ];
}

// The command form, made from the schemas

const schema_at = pointer => pointer.slice(2).split('/').reduce((at, name) => at?.[name], facts.schemas);

/// What the schema demands, with its references followed.
function flat(schema) {
    const parts = [schema.$ref ? flat(schema_at(schema.$ref)) : {}, ...(schema.allOf ?? []).map(flat)];
    return Object.assign({}, ...parts, schema);
}

const commands = () => facts.schemas['command.json'].definitions;

function make_field(name, schema, required) {
    const {type, title, description, minimum, maximum} = flat(schema);
    const input = make('input', {name, required, placeholder: title ?? '', autocomplete: 'off'});
    if (type === 'integer' && maximum <= 2147483647) {
        Object.assign(input, {type: 'number', min: minimum, max: maximum});
    }
    if (name === 'bot') {
        input.setAttribute('list', 'known_bots');
    }
    return make('label', {title: description ?? ''}, name + (required ? ' *' : ''), input);
}

function choose_command() {
    const schema = commands()[by_id('word').value];
    by_id('meaning').textContent = [schema.title, schema.description].filter(Boolean).join('. ');
    const fields = Object.entries(schema.properties).filter(([, one]) => one.const === undefined);
    fields.sort(([one], [other]) => schema.required.includes(other) - schema.required.includes(one));
    by_id('members').replaceChildren(...fields.map(([name, one]) => make_field(name, one, schema.required.includes(name))));
    preview_command();
}

/// Identifiers and numbers go as numbers if they are written like one.
const json_value = text => (/^(0|[1-9]\d{0,19})$/.test(text) ? text : JSON.stringify(text));

/// The command as text: numbers keep all their digits.
function composed_command() {
    const {properties} = commands()[by_id('word').value];
    const members = properties.cmd?.const ? [`"cmd":${JSON.stringify(properties.cmd.const)}`] : [];
    for (const {name, value} of by_id('members').querySelectorAll('input')) {
        const items = value.split(/[\s,]+/).filter(item => item !== '').map(json_value);
        if (value !== '') {
            members.push(`${JSON.stringify(name)}:${properties[name].type === 'array' ? `[${items}]` : json_value(value)}`);
        }
    }
    return `{${members.join(',')}}`;
}

function preview_command() {
    by_id('preview').textContent = composed_command();
}

function build_form() {
    const words = Object.keys(commands()).filter(word => word !== 'unknown');
    by_id('word').replaceChildren(...words.map(word => new Option(word, word)));
    by_id('word').value = 'version';
    document.body.append(make('datalist', {id: 'known_bots'}, ...facts.bots.map(bot => new Option(bot.uuid, bot.uuid))));
    by_id('word').addEventListener('change', choose_command);
    by_id('members').addEventListener('input', preview_command);
    by_id('command').addEventListener('submit', event => {
        event.preventDefault();
        execute(composed_command());
    });
    by_id('typed').addEventListener('submit', event => {
        event.preventDefault();
        const line = by_id('line').value;
        by_id('line').value = '';
        execute(line).then(taken => { by_id('line').value ||= taken ? '' : line; });
    });
    choose_command();
}

// The faults

const controls = []; // functions that show the present state in the inputs

/// An input for `member`, which follows the state except while somebody uses it.
function follow_state(input, member, read, command) {
    controls.push(() => {
        if (document.activeElement !== input || member === 'checked') {
            input[member] = read();
        }
    });
    input.addEventListener('change', () => {
        execute(command(input[member]));
        input.blur();
    });
    return input;
}

const make_switch = (text, read, command) =>
    make('label', {}, follow_state(make('input', {type: 'checkbox'}), 'checked', read, command), ' ' + text);
const make_number = (text, step, read, command) =>
    make('label', {}, text + ' ', follow_state(make('input', {type: 'number', min: 0, step}), 'value', read, command));

function fault_row(name) {
    const peer = () => (name.startsWith('core') ? state.cores.find(core => core.name === name) : state[name]);
    const kinds = facts.wrong.filter(one => one.peers.split(' ').includes(name.split(':')[0]));
    const wrong = make('select', {}, new Option('right answers', 'off'), ...kinds.map(one => new Option(`${one.name}: ${one.meaning}`, one.name)));
    return make('fieldset', {}, make('legend', {}, name),
                make_switch('stopped', () => !peer().running, on => `${on ? 'stop' : 'start'} ${name}`),
                make_switch('silent', () => peer().silent, on => `silent ${name} ${on ? 'on' : 'off'}`),
                make_number('delay, ms', 1, () => peer().delay, value => `delay ${value} ${name}`),
                follow_state(wrong, 'value', () => peer().wrong, kind => `wrong ${name} ${kind}`));
}

function absent_switch({uuid}) {
    return make_switch(uuid, () => state.bots.get(uuid).absent, on => `${on ? 'absent' : 'present'} ${uuid}`);
}

function build_faults() {
    const names = [state.server && 'server', ...state.cores.map(core => core.name), state.fusion && 'fusion'].filter(Boolean);
    const daemon = ['start', 'stop'].map(word => {
        const button = make('button', {}, word);
        button.addEventListener('click', () => execute(`${word} daemon`));
        return button;
    });
    by_id('faults').replaceChildren(
        ...names.map(fault_row),
        make('fieldset', {}, make('legend', {}, 'absent Bots'), ...[...state.bots.values()].map(absent_switch)),
        make('fieldset', {}, make('legend', {}, 'network'),
             make_number('share of lost UDP requests', 0.01, () => state.loss, value => `loss ${value}`)),
        facts.daemon ? make('fieldset', {}, make('legend', {}, 'daemon'), ...daemon) : '');
}

function refresh_faults() {
    if (controls.length === 0) {
        build_faults();
    }
    controls.forEach(show => show());
}

// Keys and other input

const keys = {
    j: () => chart.move(1), k: () => chart.move(-1), ArrowDown: event => chart.move(1, event.shiftKey),
    ArrowUp: event => chart.move(-1, event.shiftKey), J: () => chart.move(1, true), K: () => chart.move(-1, true),
    PageDown: event => chart.move(20, event.shiftKey), PageUp: event => chart.move(-20, event.shiftKey),
    Home: event => chart.select(0, event.shiftKey), End: event => { chart.select(Infinity, event.shiftKey); chart.follow(); },
    '/': () => by_id('filter').focus(), f: () => by_id('search').focus(), n: () => find_failure(1), N: () => find_failure(-1),
    p: () => set_paused(held === null), e: export_chosen, '?': () => show_tab('keys'),
    c: () => { if (facts?.mode === 'live') { show_tab('commands'); by_id('line').focus(); } },
    r: () => { const other = shown.entry?.request ?? shown.entry?.answer; if (other) { go_to(other); } },
    Escape: () => { by_id('filter').value = ''; set_filter(); },
};

function set_filter() {
    chart.conversation.words = by_id('filter').value.toLowerCase().split(/\s+/).filter(word => word !== '');
    chart.refilter();
}

function on_key(event) {
    const typing = event.target.matches('input:not([type=checkbox]):not([type=file]), select, textarea') ||
        (event.target.closest('[role=tabpanel]') && /^(Arrow|Page|Home|End|Escape)/.test(event.key)); // scrolls the panel
    if (typing && event.key === 'Escape') {
        by_id('list').focus();
        event.preventDefault();
    }
    if (typing || event.ctrlKey || event.metaKey || event.altKey) {
        return;
    }
    const tab = document.querySelectorAll('[role=tab]:not([hidden])')[Number(event.key) - 1];
    if (tab !== undefined) {
        show_tab(tab.dataset.tab);
    } else if (Object.hasOwn(keys, event.key)) {
        keys[event.key](event);
        event.preventDefault();
    }
}

function connect_bar() {
    document.addEventListener('keydown', on_key);
    by_id('filter').addEventListener('input', set_filter);
    by_id('bot').addEventListener('change', event => { chart.conversation.bot = event.target.value; chart.refilter(); });
    by_id('search').addEventListener('input', event => { chart.found = event.target.value.toLowerCase(); chart.redraw(); });
    by_id('search').addEventListener('keydown', event => event.key === 'Enter' && find_next(event.shiftKey ? -1 : 1));
    by_id('fold').addEventListener('change', event => { chart.conversation.fold = event.target.checked; chart.refilter(); });
    by_id('log').addEventListener('change', event => {
        chart.conversation.hidden[event.target.checked ? 'delete' : 'add']('log');
        chart.refilter();
    });
    by_id('pause').addEventListener('click', () => set_paused(held === null));
    by_id('failure').addEventListener('click', () => find_failure(1));
    by_id('export').addEventListener('click', export_chosen);
    by_id('file').addEventListener('change', ({target}) => {
        [...target.files].forEach(open_file);
        target.value = ''; // the same file can be opened again
    });
    by_id('live').addEventListener('click', () => { show_conversation(live); refresh_badge(); });
    by_id('reload').addEventListener('click', () => location.reload());
    document.querySelectorAll('[role=tab]').forEach(tab => tab.addEventListener('click', () => show_tab(tab.dataset.tab)));
    document.addEventListener('dragover', event => event.preventDefault());
    document.addEventListener('drop', event => {
        event.preventDefault();
        if (event.dataTransfer.files.length > 0) {
            open_file(event.dataTransfer.files[0]);
        }
    });
}

async function begin() {
    connect_bar();
    const embedded = by_id('recording');
    if (embedded) {
        const {name, items} = JSON.parse(embedded.textContent);
        open_conversation(items, name);
        return;
    }
    facts = await (await fetch('start')).json();
    if (facts.mode === 'live') {
        document.querySelectorAll('.hands').forEach(tab => { tab.hidden = false; });
        build_form();
        show_tab('installation');
        follow_feed();
    } else {
        const {items} = await (await fetch('feed?from=0&run=')).json();
        open_conversation(items, facts.name);
    }
}

begin();
