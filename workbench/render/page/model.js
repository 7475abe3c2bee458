// The page's model, and what all scripts share.

const root = document.documentElement;
const byId = (id) => document.getElementById(id);
const parse = (id) => JSON.parse(byId(id).textContent);
const model = parse(':model');
const {kernels} = model;

// A listing, with members that only some rows have indexed by row.
function listingOf(index) {
    const listing = parse(`:listing-${index}`);
    for (const rows of [listing.rows, listing.before])
        for (const member of rows ? ['labels', 'comments', 'targets', 'calls'] : [])
            rows[member] = Object.fromEntries(rows[member]);
    for (const chain of Object.keys(listing.chain ?? {}))
        listing.chain[chain] = new Map(listing.chain[chain]);
    if (listing.heat)
        listing.heat = Object.fromEntries(listing.heat.map(([row, ...heat]) => [row, heat]));
    return listing;
}

const withSeparators = (count) => count.toLocaleString('en');
const pluralize = (count, noun) => `${withSeparators(count)} ${noun}${count === 1 ? '' : 's'}`;
const hexadecimal = (number) => number.toString(16);
const sum = (numbers) => numbers.reduce((total, number) => total + number, 0);

function build(element, attributes, children) {
    for (const [key, value] of Object.entries(attributes))
        if (value !== undefined && value !== null && value !== false)
            element.setAttribute(key, value);
    element.append(...children);
    return element;
}
const make = (name, attributes = {}, ...children) => build(document.createElement(name), attributes, children);
const svg = (name, attributes = {}, ...children) =>
    build(document.createElementNS('http://www.w3.org/2000/svg', name), attributes, children);

// A step of a colour scale: 0 for nothing, 7 for more than half of the largest, and each step below for half as much.
function stepOf(part, largest) {
    if (!part)
        return 0;
    return Math.max(1, 7 - Math.floor(Math.log2(largest / part)));
}

// As two decimal places, like all cycles.
const roundedCycles = (cycles) => cycles === null || cycles === undefined ? null : Math.round(cycles * 100) / 100;
const signed = (number) => `${number > 0 ? '+' : number < 0 ? '−' : ''}${withSeparators(Math.abs(number))}`;
const processors = (model.processors ?? []).map((processor) => ({
    ...processor,
    title: processor.name === processor.model ? processor.name : `${processor.name} (model of ${processor.model})`,
}));

const classes = new Map((model.classes ?? []).map((one, rank) => [one.name, {...one, rank}]));
const same = model.classes?.at(-1).name;
const ofAll = `% of all ${model.profile?.exact ? 'executions' : 'samples'}`;
const severities = ['error', 'warning', 'note'];
const signs = {error: '✖', warning: '▲', note: '●'};

// What is derived from the model for each kernel.
const sizes = kernels.map(({code, data}) => Math.log2(Math.max(1, code + data)));
const [smallest, largest] = [sizes.reduce((a, b) => Math.min(a, b), 64), sizes.reduce((a, b) => Math.max(a, b), 0)];
const hottest = kernels.reduce((most, {period}) => Math.max(most, period ?? 0), 0);
kernels.forEach((kernel, index) => {
    kernel.index = index;
    kernel.size = kernel.code + kernel.data;
    kernel.calls = kernel.callees.length;
    const {stack, live, reads, writes, saves, needs} = kernel.interface;
    Object.assign(kernel, {stack, reads, writes, saves, needs, general: live.general.most,
        vectors: live.vector.most, predicates: live.predicate.most});
    for (const {name} of processors) {
        kernel[name] = roundedCycles(kernel.cycles[name]);
        kernel[`delta-${name}`] = roundedCycles(kernel.cycles_delta?.[name]);
    }
    kernel.callersOf = [];
    kernel.found = [];
    kernel.rank = classes.get(kernel.class)?.rank ?? 0;
    kernel.changed = Boolean(model.classes) && kernel.class !== same;
    const sizeStep = largest === smallest ? 3 : Math.round(7 * (sizes[index] - smallest) / (largest - smallest));
    kernel.colours = `size-${sizeStep} heat-${stepOf(kernel.period, hottest)} tone-${classes.get(kernel.class)?.tone}`;
});
for (const kernel of kernels)
    for (const callee of kernel.callees)
        if (callee !== kernel.index)
            kernels[callee].callersOf.push(kernel.index);
for (const finding of model.findings)
    kernels[finding.kernel]?.found.push(finding);
for (const kernel of kernels) {
    kernel.callers = kernel.callersOf.length;
    kernel.findings = kernel.found.length;
    for (const severity of severities)
        kernel[`${severity}s`] = kernel.found.filter((finding) => finding.severity === severity).length;
}
const indexOfId = new Map(kernels.map(({id}, index) => [id, index]));

// What is shown: the kernels in the order of table and listings, and which of them the filter leaves.
const view = {order: kernels.map((_, index) => index), fits: kernels.map(() => true)};
const shownKernels = () => view.order.filter((index) => view.fits[index]);
const redraws = []; // called when the view has changed

const kernelLink = ({id, name}) => make('a', {href: `#${id}`, tabindex: -1}, make('bdi', {}, name));
const chip = (name) => make('span', {class: `chip tone-${classes.get(name).tone}`, title: classes.get(name).meaning},
    name);

// ---- Groups: each is one Tab stop; inside it, the arrow keys move

const groups = [];

function group(container, selector) {
    let current = null;
    const items = () => [...container.querySelectorAll(selector)].filter((item) => item.getClientRects().length);
    const settle = (item) => {
        current?.setAttribute('tabindex', -1);
        current = item;
        current?.setAttribute('tabindex', 0);
    };
    container.addEventListener('focusin', ({target}) => settle(target.closest(selector) ?? current));
    container.addEventListener('keydown', (event) => {
        if (event.ctrlKey || event.altKey || event.metaKey || !event.target.matches(selector))
            return;
        const all = items();
        const at = all.indexOf(event.target);
        const to = {ArrowLeft: at - 1, ArrowUp: at - 1, ArrowRight: at + 1, ArrowDown: at + 1, Home: 0,
            End: all.length - 1}[event.key];
        if (!all[to])
            return;
        event.preventDefault();
        all[to].focus();
    });
    // After drawing: new items can be reached, one of them with the Tab key.
    const refresh = () => {
        if (!current?.isConnected || !current.getClientRects().length)
            settle(items()[0] ?? null);
    };
    groups.push(refresh);
    return refresh;
}
