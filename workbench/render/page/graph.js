// The call graph: layers of kernels, each above everything that it calls.

const graphLimits = {
    whole: 60,   // kernels that a graph of all is drawn of unasked
    nearby: 24,  // of a kernel's surroundings
    drawn: 400,  // of any graph
};
const calleesOf = kernels.map(({index, callees}) => callees.filter((callee) => callee !== index));
const calling = kernels.filter(({callees, callersOf}) => callees.length || callersOf.length).map(({index}) => index);

// The kernel, its callers and its callees, direct and indirect, nearest first.
function around(index) {
    const found = new Set([index]);
    const seen = [new Set(found), new Set(found)];
    let [up, down] = [[index], [index]];
    const step = (from, next, known) => from.flatMap(next).filter((kernel) => {
        if (known.has(kernel) || found.size >= graphLimits.nearby)
            return false;
        known.add(kernel);
        found.add(kernel);
        return true;
    });
    while (up.length || down.length) {
        down = step(down, (kernel) => calleesOf[kernel], seen[0]);
        up = step(up, (kernel) => kernels[kernel].callersOf, seen[1]);
    }
    return found;
}

// The layer of each: one below its lowest caller. Calls that close a cycle are ignored.
function layersOf(members) {
    const layer = new Map();
    const open = new Set();
    const visit = (index) => {
        if (layer.has(index) || open.has(index))
            return;
        open.add(index);
        let lowest = -1;
        for (const caller of kernels[index].callersOf) {
            if (!members.has(caller))
                continue;
            visit(caller);
            lowest = Math.max(lowest, layer.get(caller) ?? -1);
        }
        open.delete(index);
        layer.set(index, lowest + 1);
    };
    for (const index of members)
        visit(index);
    return layer;
}

// Nodes by layer, with a dummy node wherever an edge crosses a layer, ordered so that connected nodes are near each
// other. Edges lead from each layer to the next.
function layOut(members) {
    const layer = layersOf(members);
    const layers = Array.from({length: Math.max(-1, ...layer.values()) + 1}, () => []);
    const nodes = new Map();
    const add = (kernel, level) => {
        const node = {kernel, level, up: [], down: []};
        layers[level].push(node);
        return node;
    };
    for (const [kernel, level] of layer)
        nodes.set(kernel, add(kernel, level));
    const links = []; // one for each call: the nodes along its way
    for (const kernel of members)
        for (const callee of calleesOf[kernel].filter((one) => members.has(one))) {
            const [from, to] = [nodes.get(kernel), nodes.get(callee)];
            const way = [from];
            const step = from.level < to.level ? 1 : -1;
            for (let level = from.level + step; level !== to.level && from.level !== to.level; level += step)
                way.push(add(-1, level));
            way.push(to);
            for (let i = 1; i < way.length; ++i) {
                way[i - 1].down.push(way[i]);
                way[i].up.push(way[i - 1]);
            }
            links.push(way);
        }
    const number = () => layers.forEach((row) => row.forEach((node, place) => {
        node.place = place;
    }));
    const mean = (others, otherwise) => others.length ? sum(others.map(({place}) => place)) / others.length : otherwise;
    number();
    for (let sweep = 0; sweep < 8; ++sweep)
        for (const row of sweep % 2 ? [...layers].reverse() : layers) {
            for (const node of row)
                node.wish = mean(node[sweep % 2 ? 'down' : 'up'], node.place);
            row.sort((a, b) => a.wish - b.wish || a.place - b.place);
            number();
        }
    return {layers, links};
}

const middleOf = (node) => node.x + node.width / 2;

// Centres nodes on those that they are connected with, as far as their neighbours permit. Returns the width.
function spread(layers, gap) {
    let right = 0;
    for (const nodes of layers) {
        let x = 0;
        for (const node of nodes) {
            node.x = x;
            x += node.width + gap;
        }
        right = Math.max(right, x - gap);
    }
    for (const nodes of layers) {
        const last = nodes.at(-1);
        const shift = (right - last.x - last.width) / 2;
        for (const node of nodes)
            node.x += shift;
    }
    for (let sweep = 0; sweep < 12; ++sweep)
        for (const nodes of sweep % 2 ? layers : [...layers].reverse())
            nodes.forEach((node, i) => {
                const others = sweep % 2 ? node.up : node.down;
                if (!others.length)
                    return;
                const wish = sum(others.map(middleOf)) / others.length - node.width / 2;
                const least = i ? nodes[i - 1].x + nodes[i - 1].width + gap : 0;
                const most = (i + 1 < nodes.length ? nodes[i + 1].x - gap : right) - node.width;
                node.x = Math.max(least, Math.min(most, wish));
            });
    return right;
}

function graphOf(members, canvas) {
    const {layers, links} = layOut(members);
    const [height, gap, between] = [24, 14, 56];
    const measure = svg('text');
    canvas.append(measure);
    const shortened = ({name}) => name.length > 32 ? `${name.slice(0, 31)}…` : name;
    for (const node of layers.flat()) {
        node.width = 8;
        if (node.kernel < 0)
            continue;
        measure.textContent = shortened(kernels[node.kernel]);
        node.width = Math.ceil(measure.getComputedTextLength()) + 16;
    }
    measure.remove();
    const right = spread(layers, gap);
    const top = (node) => node.level * (height + between) + 12;
    canvas.append(svg('defs', {}, svg('marker', {
        id: ':arrow', viewBox: '0 0 8 8', refX: 7, refY: 4, markerWidth: 7, markerHeight: 7, orient: 'auto',
    }, svg('path', {d: 'M0 0L8 4L0 8z'}))));
    for (const way of links) {
        let [x, y] = [middleOf(way[0]), top(way[0]) + height];
        let path = `M${x.toFixed(1)} ${y}`;
        for (const node of way.slice(1)) {
            const [toX, toY] = [middleOf(node), top(node)];
            const bend = (toY - y) / 2;
            path += `C${x.toFixed(1)} ${y + bend} ${toX.toFixed(1)} ${toY - bend} ${toX.toFixed(1)} ${toY}`;
            [x, y] = [toX, toY];
            if (node.kernel < 0) {
                y += height;
                path += `V${y}`;
            }
        }
        canvas.append(svg('path', {
            d: path, 'marker-end': 'url(#:arrow)', 'data-from': way[0].kernel, 'data-to': way.at(-1).kernel,
        }));
    }
    for (const node of layers.flat().filter(({kernel}) => kernel >= 0)) {
        const kernel = kernels[node.kernel];
        const what = [kernel.name, ...model.classes ? [kernel.class] : [],
            ...kernel.time_text ? [`${kernel.time_text} ${ofAll}`] : []].join(', ');
        const link = svg('a', {
            href: `#${kernel.id}`, tabindex: -1, 'data-kernel': node.kernel,
            class: `${kernel.colours}${view.fits[node.kernel] ? '' : ' dimmed'}`,
        }, svg('title', {}, what), svg('rect', {x: node.x, y: top(node), width: node.width, height, rx: 3}),
        svg('text', {x: middleOf(node), y: top(node) + 16, 'text-anchor': 'middle'}, shortened(kernel)));
        if (kernel.callees.includes(node.kernel))
            link.append(svg('path', {
                d: `M${node.x + node.width - 14} ${top(node)}c0 -12 10 -12 10 0`, 'marker-end': 'url(#:arrow)',
            }));
        canvas.append(link);
    }
    const bottom = layers.length * (height + between) - between + 24;
    build(canvas, {width: right + 4, height: bottom, viewBox: `-2 0 ${right + 4} ${bottom}`}, []);
}

// The kernels that the filter leaves, with their callers and callees.
function filteredMembers() {
    if (view.fits.every(Boolean))
        return calling;
    const members = new Set();
    for (const index of calling.filter((one) => view.fits[one]))
        for (const member of [index, ...calleesOf[index], ...kernels[index].callersOf])
            members.add(member);
    return [...members];
}

let graphCentre = -1; // the kernel whose surroundings are shown where all are too many

function drawGraph() {
    const place = byId(':graph');
    const wanted = filteredMembers();
    const filtered = wanted.length < calling.length;
    const everything = wanted.length <= graphLimits.whole || graphCentre < 0;
    if (!everything && !calling.includes(graphCentre))
        [graphCentre] = calling;
    const centre = everything || (filtered && !wanted.includes(graphCentre)) ? wanted[0] : graphCentre;
    const members = everything ? new Set(wanted) : around(centre);
    byId(':graph-of').textContent = !calling.length ? 'No kernel calls another.'
        : !wanted.length ? 'No kernel that the filter leaves calls another or is called.'
            : everything && !filtered ? `${withSeparators(calling.length)} of ${pluralize(kernels.length, 'kernel')} call another or are called; ` +
                'callers stand above callees.'
                : everything ? 'What the filter leaves, with its callers, above, and its callees, below.'
                    : `${kernels[centre].name} with its nearest callers, above, and callees, below: ` +
                        `${withSeparators(members.size)} of ${pluralize(wanted.length, 'kernel')}. Go to another kernel to see it here.`;
    byId(':graph-whole').hidden = everything || wanted.length > graphLimits.drawn;
    const canvas = svg('svg', {role: 'group', 'aria-label': 'Graph of calls, callers above callees'});
    place.replaceChildren(canvas);
    if (!members.size) {
        canvas.remove();
        return;
    }
    graphOf(members, canvas);
    if (!everything) {
        const box = place.querySelector(`a[data-kernel="${centre}"] rect`);
        place.scrollLeft = box.x.baseVal.value + box.width.baseVal.value / 2 - place.clientWidth / 2;
    }
}

function startGraph() {
    const place = byId(':graph');
    const score = (index) => 1e9 * (kernels[index].changed ? 1 : 0) + (kernels[index].time ?? 0) * 1e6 + calleesOf[index].length;
    graphCentre = calling.reduce((best, index) => score(index) > score(best) ? index : best, calling[0] ?? -1);
    byId(':graph-whole').addEventListener('click', () => {
        graphCentre = -1;
        drawGraph();
    });
    const fade = ({target}) => {
        const link = target.closest('a');
        const index = link ? Number(link.dataset.kernel) : -1;
        const near = new Set([index]);
        for (const path of place.querySelectorAll('path[data-from]')) {
            const ends = [Number(path.dataset.from), Number(path.dataset.to)];
            const touches = ends.includes(index);
            path.classList.toggle('lit', touches);
            path.classList.toggle('faded', index >= 0 && !touches);
            if (touches)
                ends.forEach((end) => near.add(end));
        }
        for (const other of place.querySelectorAll('a'))
            other.classList.toggle('faded', index >= 0 && !near.has(Number(other.dataset.kernel)));
    };
    place.addEventListener('pointerover', fade);
    place.addEventListener('pointerleave', () => fade({target: place}));
    place.addEventListener('focusin', fade);
    group(place, 'a');
    redraws.push(drawGraph);
}

// Shows the neighbours of a kernel, if the graph does not show all kernels.
function centreGraph(index) {
    if (graphCentre < 0 || graphCentre === index || !calling.includes(index))
        return;
    graphCentre = index;
    if (filteredMembers().length > graphLimits.whole)
        drawGraph();
}
