'use strict';

// What the page holds in its table, strips and listings is there without this script. It sorts and filters the table,
// draws the graph of calls, and in large sets the listings, when they come into view.
(() => {
    const root = document.documentElement;
    const byId = (id) => document.getElementById(id);
    const kernels = JSON.parse(byId(':data').textContent).kernels;
    const indexOfId = new Map(kernels.map((kernel, index) => [kernel.id, index]));
    root.classList.add('running');
    const grouped = (count) => count.toLocaleString('en');

    // ---- Which kernel is pointed at, anywhere on the page

    const rows = [...document.querySelectorAll('.kernels tbody tr')]; // in the order of the data
    const blocks = kernels.map(() => []);
    for (const block of document.querySelectorAll('.strip a'))
        blocks[block.dataset.kernel].push(block);
    let lit = -1;

    function light(index) {
        if (index === lit)
            return;
        for (const [which, on] of [[lit, false], [index, true]]) {
            if (which < 0)
                continue;
            rows[which].classList.toggle('lit', on);
            for (const block of blocks[which])
                block.classList.toggle('lit', on);
        }
        lit = index;
    }

    const kernelOf = (element) => {
        const row = element.closest('.kernels tbody tr');
        if (row)
            return rows.indexOf(row);
        const block = element.closest('.strip a');
        return block ? Number(block.dataset.kernel) : -1;
    };
    document.addEventListener('pointerover', (event) => light(kernelOf(event.target)));
    document.addEventListener('focusin', (event) => light(kernelOf(event.target)));

    // ---- Placement: colours, zoom, and the arrow keys from block to block

    byId(':colour').addEventListener('change', (event) => {
        root.dataset.colour = event.target.value;
    });

    const strips = byId(':strips');
    const under = byId(':under');
    let zoom = 1;

    function zoomTo(factor, centre = strips.clientWidth / 2) {
        const at = (strips.scrollLeft + centre) / zoom;
        zoom = Math.min(Math.max(factor, 1), 4096);
        strips.style.setProperty('--zoom', zoom);
        strips.scrollLeft = at * zoom - centre;
    }
    byId(':zoom-in').addEventListener('click', () => zoomTo(zoom * 2));
    byId(':zoom-out').addEventListener('click', () => zoomTo(zoom / 2));
    byId(':zoom-fit').addEventListener('click', () => zoomTo(1));
    byId(':one-scale').addEventListener('change', (event) => strips.classList.toggle('each', !event.target.checked));
    strips.addEventListener('wheel', (event) => {
        if (!event.ctrlKey)
            return;
        event.preventDefault();
        zoomTo(zoom * 2 ** (-event.deltaY / 200), event.clientX - strips.getBoundingClientRect().left);
    }, {passive: false});

    const describe = (event) => {
        const block = event.target.closest('.strip a');
        under.textContent = block ? block.title : '';
    };
    strips.addEventListener('pointerover', describe);
    strips.addEventListener('focusin', describe);

    const allBlocks = [...document.querySelectorAll('.strip a')];
    if (allBlocks.length)
        allBlocks[0].tabIndex = 0;
    strips.addEventListener('keydown', (event) => {
        const from = allBlocks.indexOf(event.target);
        const to = {ArrowLeft: from - 1, ArrowRight: from + 1, Home: 0, End: allBlocks.length - 1}[event.key];
        if (from < 0)
            return;
        if (event.key === '+' || event.key === '-')
            zoomTo(event.key === '+' ? zoom * 2 : zoom / 2);
        if (!allBlocks[to])
            return;
        event.preventDefault();
        allBlocks[from].tabIndex = -1;
        allBlocks[to].tabIndex = 0;
        allBlocks[to].focus();
    });

    // ---- The table: sorting and filtering

    const body = document.querySelector('.kernels tbody');
    const rowsAtOnce = 200;
    let rowsShown = rowsAtOnce;

    // Of a long table the first rows; more when its end comes into view.
    function showRows(count) {
        rowsShown = count;
        let left = count;
        for (const row of body.rows)
            row.classList.toggle('beyond', !row.hidden && left-- <= 0);
    }
    new IntersectionObserver(([end]) => {
        if (end.isIntersecting && rowsShown < rows.length)
            showRows(rowsShown + rowsAtOnce);
    }, {rootMargin: '500px'}).observe(byId(':table-end'));

    const heads = [...document.querySelectorAll('.kernels thead th[data-key]')];
    const keys = heads.map((head) => head.dataset.key);

    function compare(a, b) {
        if (a === null || b === null)
            return (a === null) - (b === null);
        return typeof a === 'string' ? (a < b ? -1 : a > b ? 1 : 0) : a - b;
    }

    function sortBy(head) {
        const key = head.dataset.key;
        const text = typeof kernels[0]?.[key] === 'string';
        const before = head.getAttribute('aria-sort');
        const ascending = before ? before !== 'ascending' : text;
        for (const other of heads)
            other.removeAttribute('aria-sort');
        head.setAttribute('aria-sort', ascending ? 'ascending' : 'descending');
        const order = kernels.map((_, index) => index).sort((a, b) => {
            const [x, y] = [kernels[a][key] ?? null, kernels[b][key] ?? null];
            const either = x === null || y === null; // without a value: at the end, either way
            return compare(x, y) * (ascending || either ? 1 : -1) || a - b;
        });
        body.append(...order.map((index) => rows[index]));
        showRows(rowsAtOnce);
    }

    for (const head of heads) {
        const button = document.createElement('button');
        button.type = 'button';
        button.append(...head.firstElementChild.childNodes);
        button.addEventListener('click', () => sortBy(head));
        head.firstElementChild.replaceWith(button);
    }

    const relations = {
        '=': (a, b) => a === b,
        '>': (a, b) => a > b,
        '<': (a, b) => a < b,
        '>=': (a, b) => a >= b,
        '<=': (a, b) => a <= b,
    };

    // One condition of the filter as a predicate of kernels.
    function condition(term) {
        const [, key, relation, value] = /^([a-z]+)(>=|<=|=|>|<)(.+)$/.exec(term) ?? [];
        if (!keys.includes(key))
            return (kernel) => kernel.name.toLowerCase().includes(term.toLowerCase());
        return (kernel) => {
            const has = kernel[key] ?? null;
            if (typeof has === 'string')
                return relations[relation](has, value);
            return has !== null && relations[relation](has, Number(value));
        };
    }

    const filter = byId(':filter');

    function applyFilter() {
        const terms = filter.value.replace(/\s*([<>]=?|=)\s*/g, '$1').split(/\s+/).filter(Boolean);
        const conditions = terms.map(condition);
        let shown = 0;
        kernels.forEach((kernel, index) => {
            const fits = conditions.every((holds) => holds(kernel));
            rows[index].hidden = !fits;
            for (const block of blocks[index])
                block.classList.toggle('dimmed', !fits);
            shown += fits;
        });
        showRows(rowsAtOnce);
        byId(':shown').textContent = conditions.length ? `${grouped(shown)} of ${grouped(kernels.length)}` : '';
    }
    filter.addEventListener('input', applyFilter);
    document.addEventListener('keydown', (event) => {
        if (event.key === '/' && !event.ctrlKey && !event.altKey && event.target.tagName !== 'INPUT') {
            event.preventDefault();
            filter.focus();
        } else if (event.key === 'Escape' && event.target === filter) {
            filter.value = '';
            applyFilter();
        }
    });

    // ---- Calls: layers of kernels, each above all that it calls

    const callers = kernels.map(() => []);
    kernels.forEach((kernel, index) => {
        for (const callee of kernel.callees)
            if (callee !== index)
                callers[callee].push(index);
    });
    const callees = kernels.map((kernel, index) => kernel.callees.filter((callee) => callee !== index));
    const mostAtOnce = 60; // kernels that a graph of the whole set shows unasked,
    const mostNearby = 24; // one of a kernel's surroundings,
    const mostDrawn = 400; // and any graph

    // The kernel, what leads to it, and what it leads to: the nearest of these.
    function around(index) {
        const found = new Set([index]);
        const seen = [new Set(found), new Set(found)];
        let [up, down] = [[index], [index]];
        const step = (from, next, known) => from.flatMap((kernel) => next[kernel]).filter((kernel) => {
            if (known.has(kernel) || found.size >= mostNearby)
                return false;
            known.add(kernel);
            found.add(kernel);
            return true;
        });
        while (up.length || down.length) {
            down = step(down, callees, seen[0]);
            up = step(up, callers, seen[1]);
        }
        return found;
    }

    // The layer of each: one below its lowest caller. A call that closes a circle counts for nothing.
    function layersOf(members) {
        const layer = new Map();
        const open = new Set();
        const visit = (index) => {
            if (layer.has(index) || open.has(index))
                return;
            open.add(index);
            let lowest = -1;
            for (const caller of callers[index]) {
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

    // Nodes by layer, with a node of no kernel wherever an edge passes a layer, ordered so that those connected
    // stand near each other. Edges lead from each layer to the next.
    function layout(members) {
        const layer = layersOf(members);
        const layers = Array.from({length: Math.max(-1, ...layer.values()) + 1}, () => []);
        const nodes = new Map();
        const links = []; // one for each call: the nodes along its way
        for (const [kernel, level] of layer) {
            const node = {kernel, level, up: [], down: []};
            nodes.set(kernel, node);
            layers[level].push(node);
        }
        for (const kernel of members)
            for (const callee of callees[kernel]) {
                if (!members.has(callee))
                    continue;
                const [from, to] = [nodes.get(kernel), nodes.get(callee)];
                const way = [from];
                const step = from.level < to.level ? 1 : -1;
                for (let level = from.level + step; level !== to.level && from.level !== to.level; level += step) {
                    const node = {kernel: -1, level, up: [], down: []};
                    layers[level].push(node);
                    way.push(node);
                }
                way.push(to);
                for (let i = 1; i < way.length; ++i) {
                    way[i - 1].down.push(way[i]);
                    way[i].up.push(way[i - 1]);
                }
                links.push(way);
            }
        const number = () => layers.forEach((nodesOfLayer) => nodesOfLayer.forEach((node, place) => {
            node.place = place;
        }));
        const mean = (others, otherwise) =>
            others.length ? others.reduce((sum, other) => sum + other.place, 0) / others.length : otherwise;
        number();
        for (let sweep = 0; sweep < 8; ++sweep)
            for (const nodesOfLayer of sweep % 2 ? [...layers].reverse() : layers) {
                const side = sweep % 2 ? 'down' : 'up';
                for (const node of nodesOfLayer)
                    node.wish = mean(node[side], node.place);
                nodesOfLayer.sort((a, b) => a.wish - b.wish || a.place - b.place);
                number();
            }
        return {layers, links};
    }

    const svg = (name, attributes, ...children) => {
        const element = document.createElementNS('http://www.w3.org/2000/svg', name);
        for (const [key, value] of Object.entries(attributes))
            element.setAttribute(key, value);
        element.append(...children);
        return element;
    };

    const shortened = (name) => name.length > 32 ? `${name.slice(0, 31)}…` : name;

    function drawGraph(members) {
        const {layers, links} = layout(members);
        const [height, gap, between] = [24, 14, 64];
        const canvas = svg('svg', {role: 'img', 'aria-label': 'Graph of calls, callers above callees'});
        byId(':graph').replaceChildren(canvas);
        const measure = svg('text', {});
        canvas.append(measure);
        let right = 0;
        for (const nodes of layers) {
            let x = 0;
            for (const node of nodes) {
                node.width = 8;
                if (node.kernel >= 0) {
                    measure.textContent = shortened(kernels[node.kernel].name);
                    node.width = Math.ceil(measure.getComputedTextLength()) + 16;
                }
                node.x = x;
                x += node.width + gap;
            }
            right = Math.max(right, x - gap);
        }
        measure.remove();
        // Nodes move towards the middle of those that they are connected with, as far as their neighbours let them.
        const middle = (node) => node.x + node.width / 2;
        for (const nodes of layers) {
            const last = nodes[nodes.length - 1];
            const shift = (right - last.x - last.width) / 2;
            for (const node of nodes)
                node.x += shift;
        }
        for (let sweep = 0; sweep < 12; ++sweep)
            for (const nodes of sweep % 2 ? layers : [...layers].reverse())
                for (let i = 0; i < nodes.length; ++i) {
                    const node = nodes[i];
                    const others = sweep % 2 ? node.up : node.down;
                    if (!others.length)
                        continue;
                    const wish = others.reduce((sum, other) => sum + middle(other), 0) / others.length - node.width / 2;
                    const least = i ? nodes[i - 1].x + nodes[i - 1].width + gap : 0;
                    const most = (i + 1 < nodes.length ? nodes[i + 1].x - gap : right) - node.width;
                    node.x = Math.max(least, Math.min(most, wish));
                }
        const top = (node) => node.level * (height + between) + 12;
        canvas.append(svg('defs', {}, svg('marker', {
            id: ':arrow', viewBox: '0 0 8 8', refX: 7, refY: 4, markerWidth: 7, markerHeight: 7, orient: 'auto',
        }, svg('path', {d: 'M0 0L8 4L0 8z'}))));
        for (const way of links) {
            let [x, y] = [middle(way[0]), top(way[0]) + height];
            let path = `M${x.toFixed(1)} ${y}`;
            way.slice(1).forEach((node) => {
                const [toX, toY] = [middle(node), top(node)];
                const bend = (toY - y) / 2;
                path += `C${x.toFixed(1)} ${y + bend} ${toX.toFixed(1)} ${toY - bend} ${toX.toFixed(1)} ${toY}`;
                y = toY;
                x = toX;
                if (node.kernel < 0) {
                    y += height;
                    path += `V${y}`;
                }
            });
            canvas.append(svg('path', {
                d: path, 'marker-end': 'url(#:arrow)', 'data-from': way[0].kernel, 'data-to': way[way.length - 1].kernel,
            }));
        }
        for (const node of layers.flat()) {
            if (node.kernel < 0)
                continue;
            const kernel = kernels[node.kernel];
            const title = svg('title', {});
            title.textContent = kernel.name;
            const label = svg('text', {x: node.x + node.width / 2, y: top(node) + 16, 'text-anchor': 'middle'});
            label.textContent = shortened(kernel.name);
            const itself = kernel.callees.includes(node.kernel);
            const box = svg('rect', {
                x: node.x, y: top(node), width: node.width, height, rx: 3,
            });
            const link = svg('a', {
                href: `#${kernel.id}`, 'data-kernel': node.kernel, class: kernel.colours,
            }, title, box, label);
            if (itself)
                link.append(svg('path', {
                    d: `M${node.x + node.width - 14} ${top(node)}c0 -12 10 -12 10 0`, 'marker-end': 'url(#:arrow)',
                }));
            canvas.append(link);
        }
        const bottom = layers.length * (height + between) - between + 24;
        for (const [key, value] of Object.entries({width: right, height: bottom, viewBox: `-2 0 ${right + 4} ${bottom}`}))
            canvas.setAttribute(key, value);
    }

    const graph = byId(':graph');
    const calling = kernels.map((_, index) => index).filter((index) =>
        kernels[index].callees.length || callers[index].length);
    const whole = calling.length <= mostAtOnce;

    function showGraph(index) {
        const members = index < 0 ? new Set(calling) : around(index);
        byId(':graph-of').textContent = !calling.length
            ? 'No kernel calls another.'
            : index < 0
                ? `${grouped(calling.length)} of ${grouped(kernels.length)} kernels call another or are called; ` +
                    'callers stand above callees.'
                : `${kernels[index].name} with its nearest callers, above, and callees, below: ` +
                    `${grouped(members.size)} of ${grouped(calling.length)} kernels. ` +
                    'Go to another kernel to see it here.';
        byId(':graph-whole').hidden = index < 0 || calling.length > mostDrawn;
        if (!members.size)
            return;
        drawGraph(members);
        if (index >= 0) {
            const box = graph.querySelector(`a[data-kernel="${index}"] rect`);
            graph.scrollLeft = box.x.baseVal.value + box.width.baseVal.value / 2 - graph.clientWidth / 2;
        }
    }
    byId(':graph-whole').addEventListener('click', () => showGraph(-1));

    const fade = (event) => {
        const link = event.target.closest('a');
        const index = link ? Number(link.dataset.kernel) : -1;
        const near = new Set([index]);
        for (const path of graph.querySelectorAll('path[data-from]')) {
            const [from, to] = [Number(path.dataset.from), Number(path.dataset.to)];
            const touches = from === index || to === index;
            path.classList.toggle('lit', touches);
            path.classList.toggle('faded', index >= 0 && !touches);
            if (touches)
                near.add(from).add(to);
        }
        for (const other of graph.querySelectorAll('a'))
            other.classList.toggle('faded', index >= 0 && !near.has(Number(other.dataset.kernel)));
    };
    graph.addEventListener('pointerover', fade);
    graph.addEventListener('focusin', fade);

    // ---- Listings, drawn when they come near, and the places that fragments name

    const element = (name, attributes = {}, ...children) => {
        const made = document.createElement(name);
        for (const [key, value] of Object.entries(attributes))
            made.setAttribute(key, value);
        made.append(...children);
        return made;
    };

    const rowHeight = 20; // of page.css

    function arrowsSvg(arrows, lanes, rows) {
        const right = 7 * lanes + 10;
        const picture = svg('svg', {width: right, height: rows * rowHeight, 'aria-hidden': 'true'});
        for (const [fromRow, toRow, lane] of arrows) {
            const to = toRow * rowHeight + rowHeight / 2;
            const from = fromRow === toRow ? to - 5 : fromRow * rowHeight + rowHeight / 2;
            const direction = toRow <= fromRow ? 'back' : 'forth';
            picture.append(
                svg('path', {class: direction, d: `M${right - 1} ${from}H${3 + 7 * lane}V${to}H${right - 5}`}),
                svg('path', {class: `${direction} head`, d: `M${right - 1} ${to}l-6 -3.5v7z`}));
        }
        return picture;
    }

    const instruction = (row) =>
        row.link ? [row.text ?? '', element('a', {href: `#${row.link}`}, row.to)] : [row.text ?? ''];
    const hexadecimal = (number) => number.toString(16);
    const offsetLink = (id, row) => element('a', {href: `#${id}`}, `+${hexadecimal(row.offset).padStart(2, '0')}`);
    const signs = {error: '✖', warning: '▲', note: '●'};

    // What report_listing.cpp writes for sets whose listings are there from the beginning.
    function listingTable({id, compares, shares, arrows, lanes, rows}) {
        const table = element('table', {class: 'rows'});
        if (compares)
            table.append(element('thead', {}, element('tr', {}, element('td'), element('td', {class: 'old'}, 'before'),
                element('td', {colspan: shares ? 8 : 7}, 'after'))));
        const tbody = element('tbody');
        rows.forEach((row, index) => {
            const line = element('tr');
            const place = `${id}+0x${hexadecimal(row.offset ?? 0)}`;
            const isThere = row.offset !== undefined;
            if (isThere)
                line.id = place;
            if (row.kind)
                line.className = row.kind;
            const {before} = row;
            if (before) {
                const placeBefore = `${id}:old+0x${hexadecimal(before.offset)}`;
                line.append(
                    element('td', {class: 'before offset', id: placeBefore}, offsetLink(placeBefore, before)),
                    element('td', {class: 'before old'}, ...instruction(before),
                        before.comment ? `  ; ${before.comment}` : ''));
            } else if (compares) {
                line.append(element('td', {class: 'before'}), element('td', {class: 'before old'}));
            }
            if (shares)
                line.append(row.share
                    ? element('td', {class: `share h${row.step}`, style: `--bar:${row.bar}`}, row.share)
                    : element('td'));
            if (index === 0)
                line.append(element('td', {class: 'arrows', rowspan: rows.length},
                    ...arrows.length ? [arrowsSvg(arrows, lanes, rows.length)] : []));
            if (!isThere) {
                line.append(element('td', {class: 'after', colspan: 6}));
            } else {
                const mark = row.mark ? [element('span', {class: row.mark, title: row.finding}, signs[row.mark])] : [];
                line.append(
                    element('td', {class: 'mark'}, ...mark),
                    element('td', {class: 'after offset'}, offsetLink(place, row)),
                    element('td', {class: 'after word'}, row.word),
                    element('td', {class: 'after label'}, row.label ? `${row.label}:` : ''),
                    element('td', {class: 'after'}, ...instruction(row)),
                    element('td', {class: 'after comment'}, row.comment ? `; ${row.comment}` : ''));
            }
            tbody.append(line);
        });
        table.append(tbody);
        return table;
    }

    function constantsTable({differs: anyDiffers, rows}) {
        const head = [['offset'], ['bytes'], ['double'], ['floats', 2], ['integers', 2]];
        if (anyDiffers)
            head.push(['before', 2]);
        return element('table', {class: 'dump'},
            element('thead', {}, element('tr', {},
                ...head.map(([title, columns]) => element('th', columns ? {colspan: columns} : {}, title)))),
            element('tbody', {}, ...rows.map(({cells, differs}) =>
                element('tr', differs ? {class: 'differs'} : {}, ...cells.map((cell) => element('td', {}, cell))))));
    }

    function draw(article) {
        const waiting = article.querySelector('script');
        if (!waiting)
            return;
        const {listing, constants} = JSON.parse(waiting.textContent);
        waiting.remove();
        article.classList.remove('undrawn');
        const place = article.querySelector('.listing');
        place.append(listingTable(listing));
        article.querySelector('.constants')?.append(constantsTable(constants));
    }
    const nearby = new IntersectionObserver((entries) => {
        for (const entry of entries)
            if (entry.isIntersecting) {
                nearby.unobserve(entry.target);
                draw(entry.target);
            }
    }, {rootMargin: '1500px'});
    for (const article of document.querySelectorAll('article.undrawn'))
        nearby.observe(article);

    function goToFragment() {
        for (const element of document.querySelectorAll('.here'))
            element.classList.remove('here');
        const fragment = location.hash.slice(1);
        const index = indexOfId.get(fragment.split('+')[0].replace(/:old$/, ''));
        if (index === undefined)
            return;
        draw(byId(kernels[index].id));
        const place = byId(fragment) ?? byId(kernels[index].id);
        place.classList.add('here');
        // Once more when the listings above have their heights.
        const show = () => place.scrollIntoView({block: place.tagName === 'ARTICLE' ? 'start' : 'center'});
        show();
        requestAnimationFrame(() => requestAnimationFrame(show));
        if (!whole)
            showGraph(index);
    }

    const weight = (index) => [kernels[index].share ?? 0, kernels[index].callees.length];
    const first = calling.reduce((best, index) => {
        const [[share, calls], [bestShare, bestCalls]] = [weight(index), weight(best)];
        return share > bestShare || (share === bestShare && calls > bestCalls) ? index : best;
    }, calling[0] ?? -1);
    showGraph(whole ? -1 : first);
    addEventListener('hashchange', goToFragment);
    goToFragment();
})();
