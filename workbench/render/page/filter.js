// The filter of table, placement, graph and listings.

const relations = {
    ':': (a, b) => typeof a === 'string' ? a.includes(b) : a === b,
    '=': (a, b) => a === b,
    '!=': (a, b) => a !== b,
    '>': (a, b) => a > b,
    '<': (a, b) => a < b,
    '>=': (a, b) => a >= b,
    '<=': (a, b) => a <= b,
};
const columnNames = () => columns.map(({key}) => key).join(', ');

// One word of the filter as a predicate of kernels. A word that is not understood is reported, and lets everything
// through.
function condition(word, complain) {
    const everything = () => true;
    const negated = /^-./.test(word);
    const term = negated ? word.slice(1) : word;
    const named = (kernel) => kernel.name.toLowerCase().includes(term.replaceAll('"', '').toLowerCase());
    if (term === '-') // still being typed
        return everything;
    const [, name, relation, quoted] = /^([^"<>=:!]*)(!=|[<>]=?|=|:)(.*)$/s.exec(term) ?? [];
    let holds = named;
    if (relation && !kernels.some(named)) {
        const column = columnOf(name.toLowerCase().replace(/\.$/, '')); // a head is “Instr.”
        const value = quoted.replaceAll('"', '').toLowerCase();
        const number = Number(value.replace(/[,%]/g, '') || NaN);
        if (!name) {
            complain(`“${term}” does not start with a column; there are ${columnNames()}.`);
            return everything;
        }
        const parts = columns.filter(({of}) => of === name.toLowerCase());
        if (!column && parts.length) {
            complain(`“${name}” has a column for each processor: use ${parts.map(({key}) => `“${key}”`).join(' or ')}.`);
            return everything;
        }
        if (!column) {
            complain(`“${name}” is not a column; there are ${columnNames()}.`);
            return everything;
        }
        if (value === '') // still being typed
            return everything;
        if (column.text && /[<>]/.test(relation)) {
            complain(`“${name}” is a text: use “${name}:” or “${name}=”.`);
            return everything;
        }
        const matches = relations[relation === '!=' ? '=' : relation];
        if (column.key === 'class' && ![...classes.keys()].some((one) => matches(one, value))) {
            complain(`“${value}” is not a class; there are ${[...classes.keys()].join(', ')}.`);
            return everything;
        }
        const members = column.list && Number.isNaN(number);
        if (members && /[<>]/.test(relation)) {
            complain(`“${value}” is not a number: use “${name}:${value}”.`);
            return everything;
        }
        if (!column.text && !column.list && Number.isNaN(number)) {
            complain(`“${value}” is not a number, which “${name}” is compared with.`);
            return everything;
        }
        const test = relations[relation];
        holds = (kernel) => {
            const has = valueOf(kernel, column);
            if (members)
                return has.includes(value) === (relation !== '!=');
            if (column.list)
                return test(has.length, number);
            return column.text ? test(has.toLowerCase(), value) : has !== null && test(has, number);
        };
    }
    return negated ? (kernel) => !holds(kernel) : holds;
}

function applyFilter() {
    const complaints = [];
    const text = byId(':filter').value.replace(/\s*(!=|[<>]=?|=|:)\s*/g, '$1');
    const conditions = (text.match(/(?:"[^"]*"?|[^\s"])+/g) ?? []).map(
        (word) => condition(word, (complaint) => complaints.push(complaint)));
    view.fits = kernels.map((kernel) => conditions.every((holds) => holds(kernel)));
    byId(':shown').textContent = conditions.length
        ? `${withSeparators(view.fits.filter(Boolean).length)} of ${withSeparators(kernels.length)}` : '';
    byId(':complaint').textContent = complaints.join(' ');
    redraw();
}

function setFilter(text) {
    byId(':filter').value = text;
    applyFilter();
}
byId(':filter').addEventListener('input', applyFilter);

function redraw() {
    for (const draw of redraws)
        draw();
    for (const refresh of groups)
        refresh();
}
