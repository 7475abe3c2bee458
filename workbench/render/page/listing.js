// Listings and constants, drawn when they are nearly in view. In comparisons, unchanged rows are folded.

const rowHeight = 20; // of style.css
const contextRows = 3;
const nearby = 1000; // pixels from the screen, within which articles are drawn
const articles = new Map(); // by kernel: {article, draw}

// Rows of the table: the row before the change, the row after it, and whether they are equal.
function pairsOf({rows, runs}) {
    if (!runs)
        return rows.words.map((_, after) => ({after, same: true}));
    const pairs = [];
    let [before, after] = [0, 0];
    for (const [equal, removed, inserted] of runs) {
        for (let i = 0; i < equal; ++i)
            pairs.push({before: before++, after: after++, same: true});
        for (let i = 0; i < Math.max(removed, inserted); ++i)
            pairs.push({
                before: i < removed ? before++ : undefined,
                after: i < inserted ? after++ : undefined,
                same: false,
            });
    }
    return pairs;
}

// Equal instructions that load other constants than before, or the same from elsewhere.
function markOtherValues(listing, pairs) {
    for (const pair of pairs)
        if (pair.same && pair.before !== undefined)
            pair.values = (listing.before.comments[pair.before] ?? '') !== (listing.rows.comments[pair.after] ?? '');
}

// Which of `count` rows are folded: [from, to) of each run that keeps its distance from the rows to be shown.
function foldsOf(count, seen) {
    const folds = [];
    let from = 0;
    for (let at = 0; at <= count; ++at) {
        if (at < count && !seen(at))
            continue;
        const begin = from === 0 ? 0 : from + contextRows;
        const end = at === count ? count : at - contextRows;
        if (end - begin > 1)
            folds.push([begin, end]);
        from = at + 1;
    }
    return folds;
}

// How hot rows are, compared with an even distribution, so a kernel without loops stays pale.
function heatOf(heat, rowCount) {
    const periods = Object.values(heat).map(([period]) => period);
    const even = sum(periods) / rowCount;
    const most = Math.max(4 * even, periods.reduce((a, b) => Math.max(a, b), 0));
    return ([period, text]) => ({
        text,
        bar: period / most,
        step: Math.max(1, Math.min(7, 3 + Math.round(Math.log2(period / even)))),
    });
}

// Arrows of branches, each in the leftmost lane that is free along its whole length.
function arrowsOf(targets, visibleRow) {
    const mostLanes = 8; // arrows that find no free one share the last
    const arrows = Object.entries(targets).map(([from, to]) => ({from: visibleRow(Number(from)), to: visibleRow(to)}));
    for (const arrow of arrows)
        [arrow.first, arrow.last] = [Math.min(arrow.from, arrow.to), Math.max(arrow.from, arrow.to)];
    arrows.sort((a, b) => a.first - b.first || b.last - a.last);
    const freeFrom = [];
    for (const arrow of arrows) {
        let lane = freeFrom.findIndex((row) => row <= arrow.first);
        if (lane < 0)
            lane = Math.min(freeFrom.length, mostLanes - 1);
        arrow.lane = lane;
        freeFrom[lane] = Math.max(freeFrom[lane] ?? 0, arrow.last + 1);
    }
    return {arrows, lanes: freeFrom.length};
}

function arrowsPicture({arrows, lanes}, rows) {
    const right = 7 * lanes + 10;
    const picture = svg('svg', {class: 'arrows', width: right, height: rows * rowHeight, 'aria-hidden': true});
    for (const {from: fromRow, to: toRow, lane} of arrows) {
        const to = toRow * rowHeight + rowHeight / 2;
        const from = fromRow === toRow ? to - 5 : fromRow * rowHeight + rowHeight / 2;
        const direction = toRow <= fromRow ? 'back' : 'forth';
        picture.append(
            svg('path', {class: direction, d: `M${right - 1} ${from}H${3 + 7 * lane}V${to}H${right - 5}`}),
            svg('path', {class: `${direction} head`, d: `M${right - 1} ${to}l-6 -3.5v7z`}));
    }
    return picture;
}

const offsetOf = ({words}, row) => {
    const whole = words.findIndex((word) => word.length < 8);
    return whole < 0 || row < whole ? 4 * row : 4 * whole + row - whole;
};

// With aligned operands.
const textOf = ({texts}, row) => texts[row].replace(/^(\S+) /, (_, mnemonic) => `${mnemonic.padEnd(5)} `);

function instruction(rows, row, prefix) {
    const text = textOf(rows, row);
    const callee = kernels[rows.calls[row]];
    const target = rows.targets[row];
    const [name, to] = callee ? [callee.name, callee.id]
        : target === undefined ? [] : [rows.labels[target], `${prefix}+0x${hexadecimal(offsetOf(rows, target))}`];
    const at = name ? text.lastIndexOf(name) : -1;
    return at < 0 ? [text] : [text.slice(0, at), make('a', {href: `#${to}`, tabindex: -1}, text.slice(at))];
}

const span = (name, ...children) => make('span', {class: name}, ...children);
const offsetLink = (id, offset) =>
    make('a', {class: 'offset', href: `#${id}`, tabindex: -1}, `+${hexadecimal(offset).padStart(2, '0')}`);

function commentOf(rows, row) {
    const comment = rows.comments[row];
    const callee = kernels[rows.calls[row]];
    const inside = callee?.time_text && `${callee.time_text} % of all in ${callee.name}`;
    const all = [comment, inside].filter(Boolean).join('; ');
    return all ? `; ${all}` : '';
}

// ---- What the kernel costs: a table of its blocks, and beside each instruction its latency

const shortName = (processor) => processor.slice(processor.lastIndexOf('-') + 1);

// Of each instruction, by index, its latencies.
function costCells({latencies, chain}) {
    if (!latencies)
        return () => [];
    return (row) => processors.map(({name, title}) => {
        const cycles = latencies[name][row] ?? null;
        if (cycles === null)
            return span('latency');
        const waits = chain[name].get(row);
        const critical = waits !== undefined;
        return make('span', {
            class: `latency${critical ? ' critical' : ''}`,
            title: `${title}: latency ${cycles}${critical ? `, on the critical chain${waits && `; ${waits}`}` : ''}`,
        }, `${cycles}${critical ? '*' : ' '}`);
    });
}

function costCell({not_modelled: reason, cycles, throughput, limited_by: limit}) {
    if (reason)
        return make('td', {class: 'none'}, `not modelled: ${reason}`);
    return make('td', {}, make('b', {}, withSeparators(roundedCycles(cycles))),
        `, bound ${withSeparators(roundedCycles(throughput))}, ${limit}`);
}

// A row for each block, since `blocks` has it once for each processor.
function costTable(kernel, {blocks}) {
    const rows = [];
    for (let at = 0; at < blocks.length; at += processors.length) {
        const of = blocks.slice(at, at + processors.length);
        const [{block, offset, instructions, not_modelled: reason}] = of;
        const everywhere = reason && of.every((one) => one.not_modelled === reason);
        rows.push(make('tr', {}, make('th', {scope: 'row'},
            make('a', {href: `#${kernel.id}+0x${hexadecimal(offset)}`, tabindex: -1}, block)),
        make('td', {class: 'number'}, withSeparators(instructions)),
        ...everywhere ? [make('td', {class: 'none', colspan: of.length}, `not modelled: ${reason}`)] : of.map(costCell)));
    }
    const heads = ['block', 'instr.', ...processors.map(({title}) => `cycles on ${title}`)];
    return make('div', {class: 'wide', tabindex: -1}, make('table', {class: 'costs'},
        make('thead', {}, make('tr', {}, ...heads.map((head) => make('th', {scope: 'col'}, head)))),
        make('tbody', {}, ...rows)));
}

function drawRows(kernel, listing, article, unfolded) {
    const {rows, before} = listing;
    const pairs = pairsOf(listing);
    if (before)
        markOtherValues(listing, pairs);
    const folding = before || (kernel.class === same && same && !model.profile);
    const marks = new Map();
    for (const {offset, severity, message} of kernel.found)
        if (offset >= 0) {
            const row = Math.floor(offset / 4);
            marks.set(row, [...marks.get(row) ?? [], {severity, message}]);
        }
    const seen = (at) => !pairs[at].same || pairs[at].values || marks.has(pairs[at].after);
    const folds = folding ? foldsOf(pairs.length, seen).filter(([begin]) => !unfolded.has(begin)) : [];
    const costsOf = costCells(listing);
    const heat = listing.heat && heatOf(listing.heat, rows.words.length);

    const lines = []; // [pair] or [begin, end] of a fold
    const lineOf = new Map(); // by row after
    for (let at = 0, next = 0; at < pairs.length;) {
        const [begin, end] = folds[next] ?? [];
        const last = at === begin ? end : at + 1;
        for (let i = at; i < last; ++i)
            lineOf.set(pairs[i].after, lines.length);
        lines.push(at === begin ? [begin, end] : [at]);
        next += at === begin ? 1 : 0;
        at = last;
    }
    const arrows = arrowsOf(rows.targets, (row) => lineOf.get(row));

    const {lanes} = arrows;
    const headed = before || (listing.latencies && processors.length > 1);
    const table = make('div', {class: `rows${before ? ' compared' : ''}${headed ? ' headed' : ''}${listing.latencies ? ' costed' : ''}${heat ? ' heated' : ''}`});
    const widest = (texts, most) => Math.min(most, texts.reduce((width, text) => Math.max(width, text?.length ?? 0), 0));
    const latencyWidth = widest(processors.map(({name}) => shortName(name)), 8) + 2;
    const style = {
        label: `${lanes ? widest(Object.values(rows.labels), 12) + 2 : 0}ch`,
        mark: marks.size ? '1.4em' : '0px',
        text: `${widest(rows.texts.map((_, row) => textOf(rows, row)), 40) + 3}ch`,
        latency: `${latencyWidth}ch`,
        latencies: `${listing.latencies ? processors.length * latencyWidth : 0}ch`,
        arrows: `${lanes ? 7 * lanes + 10 : 0}px`,
    };
    if (before)
        style.before = `${12 + widest(before.texts.map((_, row) => `${textOf(before, row)}  ${commentOf(before, row)}`), 60)}ch`;
    for (const [name, value] of Object.entries(style))
        table.style.setProperty(`--${name}`, value);
    if (headed)
        table.append(make('div', {class: 'line sides'}, before ? span('before', span('sign'), span('offset', 'before')) : '',
            span('after', heat ? span('share') : '', span('way'), before ? span('sign') : '', span('mark'),
                span('offset', before ? 'after' : ''), span('word'), ...listing.latencies ? processors.map(({name, title}) =>
                    make('span', {class: 'latency', title: `latency on ${title}`}, `${shortName(name)} `)) : [])));
    for (const [at, end] of lines) {
        if (end) {
            table.append(make('button', {type: 'button', class: 'fold', 'data-fold': at, tabindex: -1},
                `⋯ ${pluralize(end - at, 'equal row')}`));
            continue;
        }
        const {before: old, after, same: equal, values} = pairs[at];
        const kind = values ? ' values' : equal ? '' : ' differs';
        const line = make('div', {class: `line${kind}${old === undefined ? ' inserted' : ''}${after === undefined ? ' removed' : ''}`});
        if (before) {
            const half = span('before');
            if (old !== undefined) {
                const offset = offsetOf(before, old);
                half.id = `${kernel.id}:old+0x${hexadecimal(offset)}`;
                const comment = commentOf(before, old);
                half.append(span('sign', kind ? '−' : ''), offsetLink(half.id, offset),
                    span('text', ...instruction(before, old, `${kernel.id}:old`)), make('span', {class: 'comment', title: comment}, comment && `  ${comment}`));
            }
            line.append(half);
        }
        const half = span('after');
        if (after !== undefined) {
            const offset = offsetOf(rows, after);
            const id = `${kernel.id}+0x${hexadecimal(offset)}`;
            line.id = id;
            if (heat) {
                const {text = '', bar = 0, step = 0} = listing.heat[after] ? heat(listing.heat[after]) : {};
                const share = span(`share heat-row-${step}`, text);
                share.style.setProperty('--bar', bar);
                half.append(share);
            }
            const found = marks.get(after) ?? [];
            const worst = severities.find((severity) => found.some((one) => one.severity === severity));
            half.append(span('way'), before ? span('sign', kind ? '+' : '') : '',
                make('span', {class: `mark ${worst ?? ''}`, title: found.map(({message}) => message).join('; ') || undefined},
                    signs[worst] ?? ''),
                offsetLink(id, offset), span('word', rows.words[after]), ...costsOf(after),
                span('label', rows.labels[after] ? `${rows.labels[after]}:` : ''),
                span('text', ...instruction(rows, after, kernel.id)), span('comment', commentOf(rows, after)));
        }
        line.append(half);
        table.append(line);
    }
    if (arrows.arrows.length)
        table.append(arrowsPicture(arrows, lines.length));
    table.addEventListener('click', ({target}) => {
        if (!target.dataset.fold)
            return;
        const at = Number(target.dataset.fold);
        unfolded.add(at);
        redrawRows(kernel, listing, article, unfolded);
        const first = pairs[at];
        article.querySelector(`[id="${CSS.escape(`${kernel.id}+0x${hexadecimal(offsetOf(rows, first.after))}`)}"] .after .offset`)?.focus();
    });
    return {table, pairs, folds};
}

function redrawRows(kernel, listing, article, unfolded) {
    const {table, pairs, folds} = drawRows(kernel, listing, article, unfolded);
    article.querySelector('.listing').replaceChildren(table);
    articles.get(kernel.index).drawn = {pairs, folds, listing, unfolded};
    refreshArticles();
}

// ---- Constants: eight bytes a row, as numbers of each kind

// The shortest number that reads back as this float.
function floatText(value) {
    if (!Number.isFinite(value) || value === 0)
        return numberText(value);
    for (let digits = 1; digits < 9; ++digits)
        if (Math.fround(Number(value.toPrecision(digits))) === value)
            return numberText(Number(value.toPrecision(digits)));
    return numberText(Number(value.toPrecision(9)));
}
const numberText = (value) => Object.is(value, -0) ? '-0' : String(value);

function numbersAt(hex, at) {
    const text = hex.slice(2 * at, 2 * at + 16);
    const bytes = (text.match(/../g) ?? []);
    if (bytes.length < 8)
        return [bytes.join(' ')];
    const data = new DataView(Uint8Array.from(bytes, (byte) => parseInt(byte, 16)).buffer);
    return [bytes.join(' '), numberText(data.getFloat64(0, true)), floatText(data.getFloat32(0, true)),
        floatText(data.getFloat32(4, true)), data.getInt32(0, true), data.getInt32(4, true)];
}

function constantsTable(listing, unfolded) {
    const {constants, constants_before: old} = listing;
    const rows = Math.ceil(Math.max(constants.length, old?.length ?? 0) / 16);
    const differs = (row) => old !== undefined && old.slice(16 * row, 16 * row + 16) !== constants.slice(16 * row, 16 * row + 16);
    const folds = listing.constants_differ ? foldsOf(rows, differs).filter(([begin]) => !unfolded.has(begin)) : [];
    const body = make('tbody');
    const table = make('table', {class: 'dump'}, make('thead', {}, make('tr', {},
        ...[['offset'], ['bytes'], ['double'], ['floats', 2], ['integers', 2], ...listing.constants_differ ? [['before', 2]] : []].map(
            ([title, colspan]) => make('th', {scope: 'col', colspan}, title)))), body);
    for (let row = 0; row < rows; ++row) {
        const [, end] = folds.find(([begin]) => begin === row) ?? [];
        if (end) {
            body.append(make('tr', {}, make('td', {colspan: 9}, make('button',
                {type: 'button', class: 'fold', 'data-fold': row, tabindex: -1}, `⋯ ${pluralize(end - row, 'equal row')}`))));
            row = end - 1;
            continue;
        }
        const cells = [`+${hexadecimal(8 * row).padStart(2, '0')}`, ...numbersAt(constants, 8 * row)];
        if (differs(row)) {
            cells.length = 7;
            cells.push(...numbersAt(old, 8 * row).slice(0, 2));
        }
        body.append(make('tr', {class: differs(row) && 'differs'},
            ...Array.from(cells, (text) => make('td', {}, text ?? ''))));
    }
    body.addEventListener('click', ({target}) => {
        if (!target.dataset.fold)
            return;
        unfolded.add(Number(target.dataset.fold));
        table.replaceWith(constantsTable(listing, unfolded));
        refreshArticles();
    });
    return table;
}

function constantsOf(kernel, listing) {
    const {constants, constants_before: old, constants_differ: differ} = listing;
    const kept = Math.max(constants.length, old?.length ?? 0) / 2;
    if (!kept)
        return [];
    const place = make('div', {class: 'constants', tabindex: -1});
    const details = make('details', {id: `${kernel.id}:constants`},
        make('summary', {tabindex: -1}, `Constants, ${pluralize(kernel.data, 'byte')}${differ ? ', which differ' : ''}`), place);
    details.addEventListener('toggle', () => {
        if (!details.open || place.firstChild)
            return;
        place.append(constantsTable(listing, new Set()));
        if (kernel.data > kept)
            place.append(make('p', {class: 'facts'}, `The first ${withSeparators(kept)} bytes.`));
        refreshArticles();
    });
    details.open = Boolean(differ);
    return [details];
}

// ---- Articles

function factsOf(kernel) {
    const facts = [`${kernel.address} · ${pluralize(kernel.code, 'byte')} of code, ${pluralize(kernel.instructions, 'instruction')}`];
    if (kernel.data)
        facts.push(` · ${pluralize(kernel.data, 'byte')} of constants at ${kernel.data_address}`);
    if (kernel.samples)
        facts.push(` · ${model.profile.exact ? pluralize(kernel.period, 'execution') : pluralize(kernel.samples, 'sample')}`);
    if (kernel.callees.length)
        facts.push(' · calls ', ...namesOf(kernel.callees));
    if (kernel.callersOf.length)
        facts.push(' · called by ', ...namesOf(kernel.callersOf));
    return facts;
}

function drawArticle(kernel, article) {
    const listing = listingOf(kernel.index);
    const place = make('div', {class: 'listing', tabindex: -1, role: 'group', 'aria-label': `Listing of ${kernel.name}`});
    const heading = make('header', {}, make('h3', {}, kernelLink(kernel)),
        ...model.classes ? [chip(kernel.class)] : [],
        ...kernel.time_text ? [make('span', {class: 'facts'}, `${kernel.time_text} ${ofAll}`)] : []);
    article.replaceChildren(heading, make('p', {class: 'facts'}, ...factsOf(kernel)),
        make('p', {class: 'facts'}, listing.interface),
        ...kernel.found.length ? [make('ul', {class: 'findings'}, ...kernel.found.map(findingItem))] : [],
        ...listing.blocks?.length ? [costTable(kernel, listing)] : [], place,
        ...listing.complete === false ? [make('p', {class: 'facts'}, 'The two differ too much to find all equal rows.')] : [],
        ...constantsOf(kernel, listing));
    article.classList.remove('waiting');
    if (listing.rows)
        redrawRows(kernel, listing, article, new Set());
    else
        place.append('More than 50,000 instructions: too long to be listed here.');
}

let refreshArticles = () => {};

function ensureDrawn(index) {
    const {article} = articles.get(index);
    if (article.classList.contains('waiting'))
        drawArticle(kernels[index], article);
    return article;
}

// Draws the kernel's article and those around it, so that nothing moves on the way there.
function drawAround(index) {
    const shown = shownKernels();
    const at = shown.indexOf(index);
    for (const step of [-1, 1])
        for (let i = at, height = 0; shown[i] !== undefined && height < innerHeight + nearby; i += step)
            height += ensureDrawn(shown[i]).offsetHeight;
    return articles.get(index).article;
}

function startListings() {
    const place = byId(':articles');
    byId(':latencies').textContent = processors.length
        ? 'The number beside an instruction is its latency; an asterisk marks the critical chain of its block.' : '';
    const near = new IntersectionObserver((entries) => {
        for (const {isIntersecting, target} of entries)
            if (isIntersecting) {
                near.unobserve(target);
                ensureDrawn(indexOfId.get(target.id));
            }
    }, {rootMargin: `${nearby}px`});
    for (const kernel of kernels) {
        const article = make('article', {id: kernel.id, class: 'waiting', 'aria-label': kernel.name});
        article.style.setProperty('--rows', Math.min(kernel.instructions, 50));
        articles.set(kernel.index, {article});
        near.observe(article);
    }
    refreshArticles = group(place, 'a, button, summary');
    redraws.push(() => place.replaceChildren(...shownKernels().map((index) => articles.get(index).article)));
    addEventListener('beforeprint', () => {
        if (shownKernels().length <= rowsAtOnce)
            shownKernels().forEach(ensureDrawn);
    });
}
