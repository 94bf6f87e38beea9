// One row of a list: its icon, its texts, and its value as something to change in place.

export const roles = ['title', 'description', 'icon', 'type', 'path', 'value', 'edit', 'modifiable', 'disabled'];

const signs = { container: '📁', audio: '🎵', video: '🎬', image: '🖼', playlist: '🎶', query: '🔍', action: '▶', value: '⚙' };

export function scalar(value) {
    if (value === null || typeof value !== 'object')
        return value;
    return value.type ? value[value.type] : JSON.stringify(value);
}

function element(name, properties, ...children) {
    const made = Object.assign(document.createElement(name), properties);
    made.append(...children);
    return made;
}

function icon({ icon: name, type }) {
    if (/^(https?:|data:|\/)/.test(name || ''))
        return element('img', { className: 'icon', src: name, alt: '' });
    return element('span', { className: 'icon', title: name || '' }, signs[type] || '•');
}

function editor(row, write) {
    const { value } = row;
    const tag = value && value.type;
    const locked = row.modifiable === false || row.disabled === true;
    const send = content => write({ type: tag, [tag]: content });
    if (tag === 'bool_') {
        const box = element('input', { type: 'checkbox', checked: value.bool_, disabled: locked });
        box.onchange = () => send(box.checked);
        return box;
    }
    const isNumber = tag !== 'string_';
    const { min, max, step } = row.edit || {};
    const limits = isNumber ? { type: 'number', min: min || '', max: max || '', step: step || 'any' } : { type: 'text' };
    const field = element('input', { ...limits, value: scalar(value), disabled: locked });
    field.onchange = () => send(isNumber ? Number(field.value) : field.value);
    return field;
}

// The actions are {open(path), write(path, value), run(path), ask(path, text)}.
export function show(row, actions) {
    const title = row.title || row.path || '';
    const line = element('li', {}, icon(row));
    line.dataset.path = row.path || '';
    line.dataset.title = title;
    const label = row.path && row.type === 'container'
        ? element('a', { href: `#${row.path}` }, title) : element('span', {}, title);
    line.append(element('span', { className: 'text' }, label, element('small', {}, row.description || '')));
    if (row.type === 'action')
        line.append(element('button', { disabled: row.disabled === true, onclick: () => actions.run(row.path) }, 'Run'));
    else if (row.type === 'query')
        line.append(element('input', {
            type: 'search', placeholder: title, onchange() { actions.ask(row.path, this.value); },
        }));
    else if (row.value && row.value.type)
        line.append(editor(row, value => actions.write(row.path, value)));
    return line;
}

// A new value into a line that is shown; not into the field that somebody just types in.
export function update(line, value) {
    const field = line.querySelector('input');
    if (!field || field === document.activeElement && field.type !== 'checkbox')
        return;
    if (field.type === 'checkbox')
        field.checked = scalar(value);
    else
        field.value = scalar(value);
    // For style sheets, and whoever reads the document instead of the screen.
    line.dataset.value = scalar(value);
    line.classList.add('fresh');
    setTimeout(() => line.classList.remove('fresh'), 600);
}
