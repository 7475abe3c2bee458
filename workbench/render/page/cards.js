// The cards at the top: the set, its findings, the profile, the comparison.

const mostNamed = 12; // of a list of kernels

function namesOf(indices) {
    const list = indices.slice(0, mostNamed).flatMap((index, at) => [at ? ', ' : '', kernelLink(kernels[index])]);
    if (indices.length > mostNamed)
        list.push(` and ${withSeparators(indices.length - mostNamed)} more`);
    return list;
}

// Lines are pairs of a number and what it counts.
function card(title, headline, lines, between = []) {
    return make('section', {class: 'card'}, make('h2', {}, title), headline, ...between, make('dl', {},
        ...lines.flatMap(([number, ...meaning]) => [make('dt', {}, number), make('dd', {}, ...meaning)])));
}
const strong = (text, bad) => make('strong', {class: bad && 'error'}, text);

function setCard() {
    const members = kernels.filter(({mapping}) => mapping !== undefined);
    const total = (key) => sum(members.map((kernel) => kernel[key]));
    const unknown = model.mappings.flatMap(({unknown: gaps}) => gaps);
    const lines = [
        [withSeparators(model.mappings.length), model.mappings.length === 1 ? 'mapping' : 'mappings'],
        [withSeparators(total('code')), `bytes of code, ${pluralize(total('instructions'), 'instruction')}`],
        [withSeparators(total('data')), 'bytes of constants'],
        [withSeparators(sum(model.mappings.map(({padding}) => padding))), 'bytes of padding'],
    ];
    if (unknown.length)
        lines.push([withSeparators(sum(unknown.map(([, size]) => size))), 'bytes unknown: of kernels without a dump']);
    return card('Set', strong(pluralize(members.length, 'kernel')), lines);
}

function findingItem(finding) {
    const {severity, kernel, offset, place, message, id, help} = finding;
    const inRow = offset !== undefined && offset >= 0 && offset % 4 === 0;
    const name = make('bdi', {}, place);
    return make('li', {},
        make('span', {class: `mark ${severity}`}, signs[severity]),
        kernel === undefined ? name : make('a', {
            href: `#${kernels[kernel].id}${inRow ? `+0x${hexadecimal(offset)}` : ''}`, tabindex: -1,
        }, name),
        ': ', make('span', {class: severity}, severity), `: ${message} [${id}]${help && `; ${help}`}`);
}

function findingsCard() {
    const {findings} = model;
    const of = (severity) => findings.filter((finding) => finding.severity === severity).length;
    return card('Findings of check', strong(findings.length ? pluralize(findings.length, 'finding') : 'none', of('error')),
        severities.filter(of).map((severity) => [withSeparators(of(severity)),
            make('span', {class: severity}, `${signs[severity]} ${severity}${of(severity) === 1 ? '' : 's'}`)]));
}

function profileCard({event, samples, period, exact, ...parts}) {
    const title = exact ? `Profile, ${pluralize(period, 'execution')} of ${pluralize(samples, 'instruction')}`
        : `Profile, ${pluralize(samples, 'sample')} of ${event}`;
    const meanings = {in_kernels: 'in kernels', unknown: 'in their mappings, without a dump', elsewhere: 'elsewhere'};
    const bar = make('div', {class: 'join', 'aria-hidden': true});
    for (const key of Object.keys(meanings)) {
        const piece = make('i', {class: key});
        piece.style.width = `${parts[key].time}%`;
        bar.append(piece);
    }
    return card(title, strong(`${parts.in_kernels.time_text} % in kernels`),
        Object.entries(meanings).map(([key, meaning]) =>
            [`${parts[key].time_text} %`, make('i', {class: `key ${key}`}), meaning]), [bar]);
}

function changeCard() {
    const changed = kernels.filter((kernel) => kernel.changed).length;
    const lines = [...classes.keys()].map((name) =>
        [name, kernels.filter((kernel) => kernel.class === name).map(({index}) => index)]);
    return card(`Against ${model.against}`,
        strong(changed ? `${withSeparators(changed)} kernel${changed === 1 ? ' differs' : 's differ'}` : 'no difference'),
        lines.filter(([, members]) => members.length).map(([name, members]) =>
            [withSeparators(members.length), chip(name), ...name === same ? [] : [' ', ...namesOf(members)]]));
}

function drawCards() {
    const most = 100;
    byId(':title').textContent = document.title = `Kernels of ${model.name}`;
    const cards = byId(':cards');
    cards.append(setCard());
    if (model.classes)
        cards.append(changeCard());
    if (model.profile)
        cards.append(profileCard(model.profile));
    cards.append(findingsCard());
    if (model.findings.length) {
        const list = make('ul', {class: 'findings'}, ...model.findings.slice(0, most).map(findingItem));
        if (model.findings.length > most)
            list.append(make('li', {}, `and ${withSeparators(model.findings.length - most)} more, at their kernels`));
        cards.append(make('details', {class: 'card', open: model.findings.some(({severity}) => severity === 'error') && ''},
            make('summary', {tabindex: -1}, 'All findings'), list));
    }
    group(cards, 'a, summary');
}
