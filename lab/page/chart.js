// The sequence chart: only the rows in sight are in the document.

const row_height = 24;

/// An element. Texts become text nodes, never markup.
function make(tag, members = {}, ...children) {
    const result = Object.assign(document.createElement(tag), members);
    result.append(...children.filter(child => child !== undefined && child !== ''));
    return result;
}

const by_id = id => document.getElementById(id);
const seconds = time => Number(time).toFixed(3);

/// A typed line begins like a prompt; the lab's answers stand for themselves.
const note_text = ({note, text}) => ({typed: '> ', said: ''}[note] ?? note + ': ') + text;

class Chart {
    constructor(conversation) {
        this.list = by_id('list');
        this.canvas = by_id('canvas');
        this.conversation = conversation;
        this.following = true; // the newest message
        this.current = -1;     // number of the selected row
        this.anchor = -1;      // where the selection began
        this.found = '';
        this.on_select = () => {};
        this.list.addEventListener('scroll', () => this.scrolled());
        this.list.addEventListener('click', event => this.clicked(event));
        by_id('newest').addEventListener('click', () => this.follow());
        new ResizeObserver(() => requestAnimationFrame(() => this.draw_lanes())).observe(this.list);
    }

    show(conversation) {
        this.conversation = conversation;
        this.current = this.anchor = -1;
        this.following = true;
        this.scroll_to(0);
        this.draw_lanes();
    }

    /// Draws at the next frame.
    redraw() {
        this.pending ??= requestAnimationFrame(() => {
            this.pending = undefined;
            this.draw();
        });
    }

    /// What people scroll decides whether the chart follows; where the chart itself scrolled to does not.
    scrolled() {
        if (this.list.scrollTop !== this.own_top) {
            const below = this.list.scrollHeight - this.list.scrollTop - this.list.clientHeight;
            this.following = below < 2 * row_height;
        }
        this.redraw();
    }

    scroll_to(top) {
        this.list.scrollTop = top;
        this.own_top = this.list.scrollTop; // may be less
    }

    follow() {
        this.following = true;
        this.redraw();
    }

    draw_lanes() {
        const lanes = this.conversation.lanes();
        this.lane_count = this.conversation.peers.size;
        const narrow = this.list.clientWidth < 560;
        const left = narrow ? 46 : 72; // the time is there
        const gap = Math.max(narrow ? 64 : 84, (this.list.clientWidth - left - 8) / lanes.length);
        this.canvas.style.minWidth = `${left + gap * lanes.length}px`;
        this.x = new Map(lanes.map((lane, index) => [lane, left + gap * (index + 0.5)]));
        this.lines = lanes.map(lane => {
            const line = make('i', {className: 'lifeline'});
            line.style.left = `${this.x.get(lane)}px`;
            return line;
        });
        by_id('lanes').replaceChildren(...lanes.map(lane => this.make_lane(lane, gap)));
        this.redraw();
    }

    make_lane(lane, gap) {
        const [name, address] = lane.split(' ');
        const hidden = this.conversation.hidden.has(lane);
        const result = make('button', {className: 'lane ' + name, title: 'Hide or show ' + lane, disabled: lane === 'daemon'},
                            make('b', {}, name), address === undefined ? '' : make('small', {}, address));
        result.setAttribute('aria-pressed', String(!hidden));
        result.style.left = `${this.x.get(lane) - gap / 2}px`;
        result.style.width = `${gap}px`;
        result.addEventListener('click', () => {
            this.conversation.hidden[hidden ? 'delete' : 'add'](lane);
            this.refilter();
            this.draw_lanes();
        });
        return result;
    }

    /// Rebuilds the view and keeps the selected row in sight.
    refilter() {
        this.conversation.rebuild();
        this.redraw();
        if (this.current >= 0 && !this.following) {
            this.reveal(this.conversation.index_of(this.current));
        }
    }

    draw() {
        const view = this.conversation.view;
        if (this.lane_count !== this.conversation.peers.size) {
            this.draw_lanes();
        }
        this.canvas.style.height = `${view.length * row_height + 8}px`;
        if (this.following) {
            this.scroll_to(this.list.scrollHeight);
        }
        const first = Math.max(0, Math.floor(this.list.scrollTop / row_height) - 3);
        const last = Math.min(view.length, first + Math.ceil(this.list.clientHeight / row_height) + 6);
        const rows = view.slice(first, last).map((entry, index) => this.make_row(entry, first + index));
        this.canvas.replaceChildren(...this.lines, ...rows);
        this.list.setAttribute('aria-activedescendant', 'row' + this.current);
        by_id('newest').hidden = this.following;
        this.on_draw?.();
    }

    make_row(entry, index) {
        const row = make('div', {id: 'row' + entry.number, className: this.class_of(entry)});
        row.setAttribute('role', 'option');
        row.setAttribute('aria-selected', String(this.is_selected(entry)));
        row.style.top = `${index * row_height}px`;
        row.append(make('time', {}, seconds(entry.time)));
        if (entry.note) {
            row.append(make('span', {className: 'text'}, note_text(entry)));
            return row;
        }
        const from = this.x.get(entry.out ? 'daemon' : entry.peer);
        const to = this.x.get(entry.out ? entry.peer : 'daemon');
        const arrow = make('i', {className: from < to ? 'arrow right' : 'arrow left'});
        arrow.style.left = `${Math.min(from, to)}px`;
        arrow.style.width = `${Math.abs(to - from)}px`;
        const label = make('span', {className: 'text'}, this.label_of(entry));
        label.style.left = `${Math.min(from, to) + 8}px`;
        row.append(arrow, label);
        return row;
    }

    label_of(entry) {
        if (entry.polls) {
            return entry.polls === 1 ? '1 poll' : `${entry.polls} polls`;
        }
        const marks = [entry.breaches.length > 0 ? '⚠' : '', entry.repeated ? '↻' : '', entry.line.event ? '✕' : ''];
        return [...marks, entry.label].filter(word => word !== '').join(' ');
    }

    class_of(entry) {
        const lost = entry.line?.event ? 'lost' : '';
        const bad = entry.breaches?.length > 0 ? 'breach' : entry.refused ? 'refused' : '';
        const found = this.found !== '' && entry.words?.includes(this.found) ? 'found' : '';
        const kind = entry.note ? 'note' : entry.polls ? 'polls' : entry.peer.split(' ')[0];
        return ['row', kind, lost, bad, entry.repeated ? 'repeated' : '', found].filter(name => name !== '').join(' ');
    }

    is_selected(entry) {
        const low = Math.min(this.anchor, this.current);
        return this.current >= 0 && (entry.last ?? entry.number) >= low && entry.number <= Math.max(this.anchor, this.current);
    }

    /// Rows come and go below the pointer, so the place counts and not the element.
    clicked(event) {
        if (event.target.closest('#lanes')) {
            return;
        }
        const index = Math.floor((event.clientY - this.canvas.getBoundingClientRect().top) / row_height);
        if (index >= 0 && index < this.conversation.view.length) {
            this.select(index, event.shiftKey);
        }
    }

    select(index, extend = false) {
        const view = this.conversation.view;
        if (view.length === 0) {
            return;
        }
        const at = Math.min(Math.max(index, 0), view.length - 1);
        this.current = view[at].number;
        this.anchor = extend && this.anchor >= 0 ? this.anchor : this.current;
        this.following = false;
        this.reveal(at);
        this.on_select(view[at]);
    }

    move(step, extend) {
        const view = this.conversation.view;
        this.select((this.current < 0 ? view.length : this.origin(step)) + step, extend);
    }

    /// Where steps begin: at the selected row or, if it is not shown, just before the next one that is.
    origin(step) {
        const {view} = this.conversation;
        const at = this.current < 0 && step < 0 ? view.length : this.conversation.index_of(this.current);
        return step > 0 && !(view[at]?.number <= this.current) ? at - 1 : at;
    }

    /// Selects the next entry that satisfies the predicate. False if there is none.
    jump(step, wanted) {
        const {view} = this.conversation;
        let at = this.origin(step) + step;
        while (view[at] && !wanted(view[at])) {
            at += step;
        }
        if (view[at]) {
            this.select(at);
        }
        return at in view;
    }

    reveal(index) {
        const head = by_id('lanes').offsetHeight;
        const top = index * row_height;
        const space = this.list.clientHeight - head - 2 * row_height;
        if (top < this.list.scrollTop) {
            this.scroll_to(Math.max(0, top - row_height));
        } else if (top > this.list.scrollTop + space) {
            this.scroll_to(top - space);
        }
        this.redraw();
    }

    /// The selected messages that are shown or, if there are none, all that are shown.
    chosen() {
        const {view} = this.conversation;
        const selected = view.filter(entry => this.is_selected(entry));
        const rows = new Set((selected.length > 0 ? selected : view).flatMap(entry => entry.rows ?? [entry]));
        return [...rows].filter(row => row.line).sort((a, b) => a.number - b.number);
    }
}
