// Fragments, and the keys that lead from place to place.

// Shows what the URL's fragment names: a kernel, one of its rows, or its constants. The keyboard continues from there.
function goToFragment(focuses) {
    for (const element of document.querySelectorAll('.here'))
        element.classList.remove('here');
    const fragment = location.hash.slice(1);
    const [, id, old, offset] = /^(.*?)(:old)?(?:\+0x([0-9a-f]+)|:constants)?$/.exec(fragment);
    const index = indexOfId.get(id) ?? indexOfId.get(fragment);
    if (index === undefined)
        return;
    if (!view.fits[index])
        setFilter('');
    const article = drawAround(index);
    if (offset && !byId(fragment))
        unfoldRow(index, old ? 'before' : 'after', parseInt(offset, 16));
    const place = byId(fragment) ?? article;
    place.classList.add('here');
    // Again once everything drawn has its final place.
    const show = () => place.scrollIntoView({block: place === article ? 'start' : 'center'});
    show();
    requestAnimationFrame(() => requestAnimationFrame(show));
    centreGraph(index);
    if (focuses) // not as the page opens: there the keyboard begins at the top
        place.querySelector(place.matches('.line') ? '.after .offset' : 'a, summary')?.focus({preventScroll: true});
}

function unfoldRow(index, side, offset) {
    const {drawn: {pairs, folds, listing, unfolded} = {}, article} = articles.get(index);
    const rows = side === 'before' ? listing?.before : listing?.rows;
    const row = rows?.words.findIndex((_, at) => offsetOf(rows, at) === offset);
    const at = pairs?.findIndex((pair) => pair[side] === row) ?? -1;
    const fold = folds?.find(([begin, end]) => begin <= at && at < end);
    if (!fold)
        return;
    unfolded.add(fold[0]);
    redrawRows(kernels[index], listing, article, unfolded);
}

// ---- Places to go to, as fragments: those of one kind in each kernel

// The first of each run of items of interest.
const begins = (items, interesting) => items.filter((item, at) => interesting(item) && !(at && interesting(items[at - 1])));

function changesOf(kernel) {
    if (!kernel.changed)
        return [];
    const listing = listingOf(kernel.index);
    if (!listing.before)
        return [kernel.id];
    const pairs = pairsOf(listing);
    markOtherValues(listing, pairs);
    const rows = begins(pairs, (pair) => !pair.same || pair.values).map(({before, after}) => after === undefined
        ? `${kernel.id}:old+0x${hexadecimal(offsetOf(listing.before, before))}`
        : `${kernel.id}+0x${hexadecimal(offsetOf(listing.rows, after))}`);
    const constants = listing.constants_differ ? [`${kernel.id}:constants`] : [];
    return rows.length || constants.length ? [...rows, ...constants] : [kernel.id];
}

function findingsOf(kernel) {
    const offsets = kernel.found.map(({offset}) => offset).filter((offset) => offset >= 0 && offset < kernel.code)
        .map((offset) => offset - offset % 4);
    const rows = [...new Set(offsets)].sort((a, b) => a - b).map((offset) => `${kernel.id}+0x${hexadecimal(offset)}`);
    return rows.length || !kernel.found.length ? rows : [kernel.id];
}

// Runs of rows with at least half of the samples of the kernel's hottest row.
function hotSpotsOf(kernel) {
    const {heat, rows} = kernel.time >= 1 ? listingOf(kernel.index) : {};
    if (!heat)
        return [];
    const most = Object.values(heat).reduce((largest, [period]) => Math.max(largest, period), 0);
    return begins([...rows.words.keys()], (row) => 2 * (heat[row]?.[0] ?? 0) >= most)
        .map((row) => `${kernel.id}+0x${hexadecimal(offsetOf(rows, row))}`);
}

const destinations = [
    {key: 'c', name: 'change', title: 'Change', places: changesOf, there: kernels.some(({changed}) => changed)},
    {key: 'f', name: 'finding', title: 'Finding', places: findingsOf, there: kernels.some(({found}) => found.length)},
    {key: 'h', name: 'hot spot', title: 'Hot spot', places: hotSpotsOf, there: kernels.some(({time}) => time >= 1)},
].filter(({there}) => there);

// From the kernel that the fragment names, otherwise from the one in view.
function go({places}, step) {
    const shown = shownKernels();
    const fragment = location.hash.slice(1);
    let at = shown.findIndex((index) => fragment === kernels[index].id || fragment.startsWith(`${kernels[index].id}+`) ||
        fragment.startsWith(`${kernels[index].id}:`));
    if (at < 0)
        at = step > 0 ? 0 : shown.length - 1;
    let here = places(kernels[shown[at]]);
    let place = here.indexOf(fragment);
    place = place >= 0 ? place + step : step > 0 ? 0 : here.length - 1;
    for (let left = shown.length; !here[place] && left > 0; --left) {
        at = (at + step + shown.length) % shown.length;
        here = places(kernels[shown[at]]);
        place = step > 0 ? 0 : here.length - 1;
    }
    if (!here[place])
        return;
    if (`#${here[place]}` === location.hash)
        goToFragment(true);
    else
        location.hash = here[place];
}

function startKeys() {
    const [filter, help, buttons] = [byId(':filter'), byId(':help'), byId(':places')];
    for (const destination of destinations)
        for (const [step, sign, word, key] of [[-1, '↑', 'Previous', destination.key.toUpperCase()], [1, '↓', 'Next', destination.key]]) {
            const button = make('button', {type: 'button', tabindex: -1, title: `${word} ${destination.name}: ${key}`,
                'aria-label': `${word} ${destination.name}`}, `${step < 0 ? `${destination.title} ` : ''}${sign}`);
            button.addEventListener('click', () => go(destination, step));
            buttons.append(button);
        }
    group(buttons, 'button');
    for (const link of byId(':sections').children)
        link.tabIndex = -1;
    group(byId(':sections'), 'a');

    const entry = ([keys, meaning]) => [
        make('dt', {}, ...keys.flatMap((key, at) => [at ? ' ' : '', make('kbd', {}, key)])), make('dd', {}, meaning)];
    byId(':keys').append(...[
        ...destinations.map(({key, name}) => [[key, key.toUpperCase()], `next, previous ${name}`]),
        [['/'], 'the filter; Escape empties it'],
        [['←', '↑', '↓', '→'], 'from item to item within the group that Tab leads to; Home and End to its ends'],
        [['+', '−'], 'zoom, among the blocks of the placement'],
        [['?'], 'this help'],
    ].flatMap(entry));
    byId(':examples').append(...[
        [['short'], 'names that contain this; in double quotes, with blanks too'],
        [['size>100'], 'a number: with > < >= <= = !='],
        ...model.classes ? [[['class:code'], `one of ${[...classes.keys()].join(', ')}`]] : [],
        ...model.profile ? [[['time>1'], `more than 1 ${ofAll}`]] : [],
        ...processors.length ? [[[`${processors[0].name}>50`], 'more than 50 cycles']] : [],
        [['findings>0'], 'found by check'],
        [['stack>0'], 'takes stack; also spills>0'],
        [['vectors>=30'], 'at least so many vector registers live at one time; also general, predicates'],
        [['saves:x19'], 'saves this register; also reads, writes, and needs:dotprod'],
        [['-short'], 'a minus in front: all others'],
    ].flatMap(entry));
    byId(':columns').textContent = `${columnNames()}.`;
    byId(':help-button').addEventListener('click', () => help.showModal());
    document.addEventListener('keydown', (event) => {
        if (event.key === 'Escape' && event.target === filter)
            setFilter('');
        if (event.ctrlKey || event.altKey || event.metaKey || help.open || event.target.matches('input[type=search]'))
            return;
        const destination = destinations.find(({key}) => key === event.key.toLowerCase());
        if (destination) {
            go(destination, event.key === destination.key ? 1 : -1);
        } else if (event.key === '/') {
            event.preventDefault();
            filter.focus();
        } else if (event.key === '?') {
            help.showModal();
        }
    });
    addEventListener('hashchange', goToFragment);
    document.addEventListener('click', ({target}) => { // a link to where the page is already
        if (target.closest('a')?.getAttribute('href') === location.hash)
            goToFragment(true);
    });
}
