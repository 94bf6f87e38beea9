// Browses the tree: shows the list whose path stands behind the "#", and keeps it up to date.

import * as tree from './tree.js';
import * as rows from './rows.js';

const step = 100;
const at = id => document.getElementById(id);

let path = '';
let count = step;
let shown = [];
// Tells an answer that comes after the next question was asked.
let turn = 0;
let later = 0;

function say(text, isError = false) {
    at('status').textContent = text;
    at('status').className = isError ? 'error' : '';
}

async function attempt(work) {
    try {
        await work();
    } catch (failure) {
        say(failure.message, true);
    }
}

const open = to => { location.hash = to; };

const actions = {
    open,
    write: (to, value) => attempt(async () => {
        await tree.setData(to, 'value', value).catch(failure => { reload(); throw failure; });
        say('Changed');
    }),
    run: to => attempt(async () => {
        const result = await tree.invoke(to, {});
        say(result ? JSON.stringify(result) : 'Done');
    }),
    ask: (to, text) => attempt(async () => {
        open(await tree.setData(to, 'query', { type: 'string_', string_: text }));
    }),
};

function watched() {
    const wanted = [{ path, type: tree.Rows }, { path, type: tree.Data }];
    for (const row of shown)
        if (row.path && row.path !== path && row.value)
            wanted.push({ path: row.path, type: tree.Value });
    return wanted;
}

const queue = new tree.Queue(events => {
    for (const event of events) {
        if (event.itemValue)
            for (const line of at('rows').children)
                if (line.dataset.path === event.path)
                    rows.update(line, event.itemValue);
        if (event.path === path && !event.itemValue)
            soon();
    }
}, () => soon());

// Many changes at once are one reading.
function soon() {
    clearTimeout(later);
    later = setTimeout(reload, 50);
}

function filter() {
    const text = at('search').value.toLowerCase();
    for (const line of at('rows').children)
        line.hidden = !line.dataset.title.toLowerCase().includes(text);
}

function reload() {
    return attempt(async () => {
        const mine = ++turn;
        const read = () => tree.getRows(path, 0, count - 1, rows.roles);
        const subscribed = watched();
        await queue.watch(subscribed);
        let answer = await read();
        if (mine !== turn)
            return;
        shown = answer.rows;
        // What the rows brought is watched first and read then, or a change could fall between the two.
        if (watched().length !== subscribed.length || JSON.stringify(watched()) !== JSON.stringify(subscribed)) {
            await queue.watch(watched());
            answer = await read();
        }
        const { title } = await tree.getData(path, ['title']);
        if (mine !== turn)
            return;
        shown = answer.rows;
        at('title').textContent = title || path;
        at('rows').replaceChildren(...shown.map(row => {
            const line = rows.show(row, actions);
            line.dataset.value = rows.scalar(row.value) ?? '';
            return line;
        }));
        at('more').hidden = shown.length >= (answer.rowsCount || 0);
        filter();
        say(`${shown.length} of ${answer.rowsCount || 0}`);
    });
}

function go() {
    path = decodeURIComponent(location.hash.slice(1));
    at('path').value = path;
    at('search').value = '';
    count = step;
    shown = [];
    if (path)
        reload();
}

at('back').onclick = () => history.back();
at('more').onclick = () => { count += step; reload(); };
at('address').onsubmit = event => { event.preventDefault(); open(at('path').value.trim()); };
at('search').oninput = filter;
// A list that has a query among its rows searches by it; any list is filtered while one types.
at('find').onsubmit = event => {
    event.preventDefault();
    const found = shown.find(row => row.type === 'query');
    if (found)
        actions.ask(found.path, at('search').value);
};
window.onhashchange = go;

if (!location.hash)
    attempt(async () => { open(await tree.start()); });
go();
