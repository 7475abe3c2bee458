// The columns of the table, by which the filter and sorting work too.

const columns = [
    {key: 'name', title: 'Kernel', also: ['kernel'], text: true},
    {key: 'class', title: 'Change', meaning: 'class of its change', also: ['change'], text: true, there: Boolean(model.classes)},
    {key: 'time', title: 'Time, %', meaning: `${ofAll}, by period`, also: ['share', 'percent', 'heat'],
        there: Boolean(model.profile)},
    ...processors.flatMap(({name, title}) => [
        {key: name, of: 'cycles', title: `Cycles on\n${name}`, also: processors.length === 1 ? ['cycles'] : [],
            meaning: `of one call on ${title}, with one iteration of each loop; ? if a part is not modelled`},
        {key: `delta-${name}`, of: 'delta-cycles', title: `± Cycles on\n${name}`, delta: true,
            also: processors.length === 1 ? ['delta-cycles'] : [], there: Boolean(model.classes),
            meaning: `more or fewer than before on ${title}; ? if that cannot be said`},
    ]),
    {key: 'findings', title: 'Findings', meaning: 'of check: errors, warnings, notes', also: ['finding']},
    {key: 'size', title: 'Size', meaning: 'bytes of code and constants', also: ['bytes']},
    {key: 'code', title: 'Code', meaning: 'bytes'},
    {key: 'data', title: 'Constants', meaning: 'bytes', also: ['constants']},
    {key: 'instructions', title: 'Instr.', meaning: 'instructions', also: ['instr', 'insns']},
    {key: 'delta', title: '± Instr.', meaning: 'instructions more or fewer than before', delta: true, there: Boolean(model.classes)},
    {key: 'load', title: 'Load', meaning: 'instructions that read memory', also: ['loads']},
    {key: 'store', title: 'Store', meaning: 'instructions that write memory only', also: ['stores']},
    {key: 'fp', title: 'FP', meaning: 'instructions on floating-point and vector registers', also: ['simd']},
    {key: 'integer', title: 'Integer', meaning: 'instructions on general registers', also: ['integers', 'int']},
    {key: 'branch', title: 'Branch', meaning: 'branches, calls and returns', also: ['branches']},
    {key: 'stack', title: 'Stack', meaning: 'bytes, ? if unknown'},
    {key: 'general', title: 'Live X', meaning: 'most general registers live at one time', also: ['gprs']},
    {key: 'vectors', title: 'Live V', meaning: 'most vector registers live at one time', also: ['vector']},
    {key: 'calls', title: 'Calls', meaning: 'kernels that it calls', also: ['callees']},
    {key: 'callers', title: 'Callers', meaning: 'kernels that call it'},
    {key: 'address', title: 'Address', meaning: 'of its code'},
    {key: 'errors', hidden: true, also: ['error']},
    {key: 'warnings', hidden: true, also: ['warning']},
    {key: 'notes', hidden: true, also: ['note']},
    {key: 'samples', hidden: true, there: Boolean(model.profile)},
    {key: 'predicates', hidden: true, also: ['predicate']},
    {key: 'spills', hidden: true, also: ['spill']},
    {key: 'reads', hidden: true, list: true, also: ['read']},
    {key: 'writes', hidden: true, list: true, also: ['write']},
    {key: 'saves', hidden: true, list: true, also: ['save']},
    {key: 'needs', hidden: true, list: true, also: ['need']},
].filter(({there = true}) => there);
const columnOf = (name) => columns.find(({key, also = []}) => key === name || also.includes(name));

// A number, a string, an array of strings, or null.
function valueOf(kernel, {key}) {
    return key === 'address' ? Number(kernel.address) : kernel[key] ?? null;
}

// Compares two kernels by a column. One without a value comes last in either direction.
function sortBy({key, text}, ascending) {
    const column = columnOf(key);
    const compare = {
        class: (a, b) => a.rank - b.rank,
        address: (a, b) => a.index - b.index,
    }[key] ?? (text ? (a, b) => a[key].localeCompare(b[key], 'en', {numeric: true})
        : (a, b) => valueOf(a, column) - valueOf(b, column));
    view.order.sort((i, j) => {
        const [a, b] = [kernels[i], kernels[j]];
        const [none, other] = [valueOf(a, column) === null, valueOf(b, column) === null];
        if (none || other)
            return none - other || i - j;
        return compare(a, b) * (ascending ? 1 : -1) || (b.period ?? 0) - (a.period ?? 0) || i - j;
    });
    view.sorted = {key, ascending};
}

// By default, what changed or is hot comes first.
const startSorted = () => sortBy(columnOf(model.classes ? 'class' : model.profile ? 'time' : 'address'),
    Boolean(model.classes) || !model.profile);
