// Placement: a strip for each mapping, to scale. Where constants leave little room for the code, the code is drawn a
// second time above it, enlarged.

const enoughCode = 0.4; // of the page's width
const characterWidth = 6.7; // of style.css's 11px monospace

// What fits of a name: its end, because the names of kernels mostly start alike.
function endOf(name, length) {
    const characters = [...name];
    if (characters.length <= length)
        return name;
    return length < 3 ? '' : `…${characters.slice(1 - length).join('')}`;
}

function legendOf(kind) {
    const scale = (name) => make('span', {class: 'scale', 'aria-hidden': true},
        ...[...Array(8).keys()].map((step) => make('i', {class: `${name}-${step}`})));
    if (kind === 'size')
        return [make('span', {}, `${withSeparators(Math.round(2 ** smallest))} bytes `, scale('size'),
            ` ${withSeparators(Math.round(2 ** largest))} bytes of code and constants`)];
    if (kind === 'heat') {
        const most = kernels.find(({period}) => period === hottest);
        return [make('span', {}, '0 ', scale('heat'), ` ${most?.time_text ?? 0} ${ofAll}, a step is half`)];
    }
    return [...classes.keys()].filter((name) => kernels.some((kernel) => kernel.class === name)).map(chip);
}

function drawMap() {
    const [strips, under] = [byId(':strips'), byId(':under')];
    const longest = model.mappings.reduce((most, {size}) => Math.max(most, size), 1);
    const members = model.mappings.map(() => []);
    for (const kernel of kernels)
        if (kernel.mapping !== undefined)
            members[kernel.mapping].push(kernel);
    const blocks = []; // with the share of the strip's width that each has

    const place = (strip, element, at, size, whole) => {
        element.style.left = `${100 * at / whole}%`;
        element.style.width = `${100 * size / whole}%`;
        strip.append(element);
    };
    const block = (strip, kernel, isData, whole, again) => {
        const size = isData ? kernel.data : kernel.code;
        if (!size)
            return;
        const title = [
            `${kernel.name}: ${isData ? 'constants' : 'code'} at ${isData ? kernel.data_address : kernel.address}, ${pluralize(size, 'byte')}`,
            ...model.profile && !isData ? [`${kernel.time_text} ${ofAll}`] : [],
            ...model.classes ? [kernel.class] : [],
        ].join(', ');
        const made = make('a', {
            class: `block ${isData ? 'data ' : ''}${kernel.colours}`, href: `#${kernel.id}`, tabindex: -1,
            'data-kernel': kernel.index, title, 'aria-label': title, 'aria-hidden': again, 'data-again': again,
        });
        place(strip, made, isData ? kernel.data_at : kernel.at, size, whole);
        blocks.push({made, name: kernel.name, share: size / whole * strip.share});
    };
    model.mappings.forEach((mapping, index) => {
        const {address, size, data_at: dataAt, unknown} = mapping;
        const kept = make('div', {class: 'strip'});
        const share = size / longest;
        const enlarged = dataAt && share * dataAt < enoughCode * size;
        kept.share = share;
        kept.style.setProperty('--share', share);
        const addUnknown = (strip, whole) => {
            for (const [at, length] of unknown.filter(([begin]) => begin < whole))
                place(strip, make('span', {
                    class: 'unknown', title: `${pluralize(length, 'byte')} unknown: no dump tells what is there`,
                }), at, Math.min(length, whole - at), whole);
        };
        strips.append(make('h3', {}, `${address}, ${pluralize(size, 'byte')}, ${pluralize(members[index].length, 'kernel')}`));
        if (enlarged) {
            const zoomed = make('div', {class: 'strip enlarged'});
            zoomed.share = 1;
            zoomed.style.setProperty('--share', 1);
            for (const kernel of members[index])
                block(zoomed, kernel, false, dataAt);
            addUnknown(zoomed, dataAt);
            const link = svg('svg', {class: 'beam', viewBox: '0 0 100 10', preserveAspectRatio: 'none', 'aria-hidden': true},
                svg('path', {d: `M0 0H100L${100 * share * dataAt / size} 10H0z`}));
            strips.append(make('p', {}, `code, enlarged ${withSeparators(Math.round(size / dataAt / share))} times; the whole to scale below`),
                zoomed, link);
        }
        for (const isData of [false, true])
            for (const kernel of members[index])
                block(kept, kernel, isData, size, enlarged && !isData ? true : undefined);
        addUnknown(kept, size);
        strips.append(kept);
    });

    let zoom = 1;
    const nameBlocks = () => {
        const width = strips.clientWidth * zoom;
        for (const {made, name, share} of blocks) {
            made.textContent = endOf(name, Math.floor((share * width - 8) / characterWidth));
            made.classList.toggle('roomy', share * width > 6);
        }
    };
    const zoomTo = (factor, centre = strips.clientWidth / 2) => {
        const at = (strips.scrollLeft + centre) / zoom;
        zoom = Math.min(Math.max(factor, 1), 4096);
        strips.style.setProperty('--zoom', zoom);
        strips.scrollLeft = at * zoom - centre;
        nameBlocks();
    };
    byId(':zoom').addEventListener('click', ({target}) => {
        if (target.dataset.zoom)
            zoomTo(zoom * Number(target.dataset.zoom));
    });
    group(byId(':zoom'), 'button');
    strips.addEventListener('wheel', (event) => {
        if (!event.ctrlKey)
            return;
        event.preventDefault();
        zoomTo(zoom * 2 ** (-event.deltaY / 200), event.clientX - strips.getBoundingClientRect().left);
    }, {passive: false});
    strips.addEventListener('keydown', ({key}) => {
        if (key === '+' || key === '-')
            zoomTo(key === '+' ? zoom * 2 : zoom / 2);
    });
    const describe = ({target}) => {
        under.textContent = target.title || 'Point at a block to see what it is.';
    };
    strips.addEventListener('pointerover', describe);
    strips.addEventListener('focusin', describe);
    addEventListener('resize', nameBlocks);
    group(strips, 'a:not([data-again])');
    redraws.push(() => {
        nameBlocks();
        for (const {made} of blocks)
            made.classList.toggle('dimmed', !view.fits[made.dataset.kernel]);
    });

    const kinds = [...model.classes ? ['change'] : [], ...model.profile ? ['heat'] : [], 'size'];
    const colour = byId(':colour');
    colour.hidden = kinds.length === 1;
    colour.append(...kinds.map((kind, at) =>
        make('label', {}, make('input', {type: 'radio', name: 'colour', value: kind, checked: at === 0 && ''}), kind)));
    const show = (kind) => {
        root.dataset.colour = kind;
        byId(':legend').replaceChildren(...legendOf(kind), make('span', {}, 'full height: code'),
            make('span', {}, 'half: constants'), make('span', {}, 'hatched: padding'),
            ...model.mappings.some(({unknown}) => unknown.length) ? [make('span', {}, 'dotted: unknown')] : []);
    };
    colour.addEventListener('change', ({target}) => show(target.value));
    show(kinds[0]);
}
