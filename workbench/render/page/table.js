// The table of kernels: the first rows of a long one, and more when its end comes into view.

const rowsAtOnce = 200;

function cell(kernel, column) {
    const {key, of, delta} = column;
    const value = valueOf(kernel, column);
    if (key === 'name')
        return make('th', {scope: 'row', title: kernel.name}, kernelLink(kernel));
    if (key === 'address')
        return make('td', {class: 'address'}, kernel.address);
    if (key === 'class')
        return make('td', {class: 'left'}, chip(value));
    if (key === 'findings' && value)
        return make('td', {}, ...severities.filter((severity) => kernel[`${severity}s`]).map((severity) =>
            make('span', {class: `count ${severity}`, title: pluralize(kernel[`${severity}s`], severity)},
                `${signs[severity]} ${kernel[`${severity}s`]}`)));
    if (value === null && of && (!delta || kernel.cycles_delta))
        return make('td', {class: 'none', title: 'Not all of it is modelled; its listing says why.'}, '?');
    if (!value)
        return make('td', {class: 'none'}, value !== null ? '0' : key === 'stack' ? '?' : '');
    if (delta)
        return make('td', {}, signed(value));
    if (key === 'time') {
        const made = make('td', {class: 'time'}, kernel.time_text);
        made.style.setProperty('--bar', kernel.period / hottest);
        return made;
    }
    return make('td', {}, withSeparators(value));
}

function drawTable() {
    const [box, heads, body] = [byId(':table-box'), byId(':heads'), byId(':rows')];
    const shown = columns.filter(({hidden}) => !hidden);
    byId(':estimate').textContent = model.estimate
        ? `Cycles of one call, with one iteration of each loop, on ${processors.map(({title}) => title).join(', ')}; ${model.estimate}.` : '';
    box.classList.toggle('tall', kernels.length > rowsAtOnce);
    const row = make('tr');
    for (const column of shown) {
        const button = make('button', {type: 'button', tabindex: -1}, column.title);
        button.addEventListener('click', () => {
            const first = column.text || column.key === 'address';
            sortBy(column, view.sorted.key === column.key ? !view.sorted.ascending : Boolean(first));
            redraw();
        });
        row.append(make('th', {scope: 'col', 'data-key': column.key,
            title: `${column.meaning ? `${column.meaning}; ` : ''}in the filter: ${column.key}`}, button));
    }
    heads.append(row);
    group(heads, 'button');
    const refresh = group(body, 'a');

    let rowsDrawn = 0;
    let order = [];
    const drawMore = () => {
        const next = order.slice(rowsDrawn, rowsDrawn + rowsAtOnce);
        rowsDrawn += next.length;
        body.append(...next.map((index) => make('tr', {'data-kernel': index},
            ...shown.map((column) => cell(kernels[index], column)))));
        refresh();
    };
    box.addEventListener('scroll', () => {
        if (rowsDrawn < order.length && box.scrollTop + 2 * box.clientHeight > box.scrollHeight)
            drawMore();
    });
    redraws.push(() => {
        order = shownKernels();
        rowsDrawn = 0;
        body.replaceChildren();
        drawMore();
        if (!order.length)
            body.append(make('tr', {}, make('td', {class: 'left', colspan: shown.length}, 'No kernel is like that.')));
        for (const head of row.children)
            if (head.dataset.key === view.sorted.key)
                head.setAttribute('aria-sort', view.sorted.ascending ? 'ascending' : 'descending');
            else
                head.removeAttribute('aria-sort');
    });
}
