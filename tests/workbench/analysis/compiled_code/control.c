// Ways through a function: switches, early returns, jumps, short circuits, values set on some ways.

extern int known(int);
extern void note(const char*, long);
extern long global_count;
extern int table_of_ints[];

int small_switch(int which, int a, int b)
{
    switch (which) {
    case 0:
        return a + b;
    case 1:
        return a - b;
    case 2:
        return a * b;
    case 3:
        return b != 0 ? a / b : 0;
    default:
        return -1;
    }
}

long dense_switch(unsigned which, long a)
{
    switch (which) {
    case 1:
        a += known(3);
        break;
    case 2:
        a ^= 0x55;
        break;
    case 3:
        a = known((int)a); // falls through
    case 4:
        a <<= 3;
        break;
    case 5:
        return a * 77;
    case 6:
        a = -a;
        break;
    case 7:
        a = a / 9;
        break;
    case 8:
        note("eight", a);
        break;
    case 9:
        a = a % 1000;
        break;
    case 10:
        global_count += a;
        break;
    case 11:
        a = ~a;
        break;
    default:
        a = 0;
    }
    return a + 1;
}

int sparse_switch(int which)
{
    switch (which) {
    case 10:
        return 1;
    case 100:
        return 2;
    case 1000:
        return 3;
    case 10000:
        return known(4);
    case 100000:
        return 5;
    case -7:
        return 6;
    }
    return 0;
}

const char* text_of(unsigned kind)
{
    switch (kind) {
    case 0:
        return "nothing";
    case 1:
        return "one thing";
    case 2:
        return "two";
    case 3:
        return "many";
    case 4:
        return "all";
    }
    return "unknown";
}

int set_on_every_way(int a)
{
    int x;
    if (a > 10)
        x = known(a);
    else if (a < -10)
        x = -a;
    else
        x = a * a;
    return x + known(x);
}

int early_returns(const int* p, int n)
{
    if (p == 0)
        return -1;
    if (n == 0)
        return 0;
    if (n < 0)
        return known(n);
    int sum = 0;
    for (int i = 0; i < n; ++i) {
        if (p[i] == 0)
            continue;
        if (p[i] < 0)
            return sum;
        if (known(p[i]))
            break;
        sum += p[i];
    }
    return sum;
}

int with_goto(int* p, int n)
{
    int i = 0;
again:
    if (i >= n)
        goto out;
    if (p[i] & 1) {
        p[i] += known(p[i]);
        if (p[i] & 2)
            goto again;
    }
    ++i;
    goto again;
out:
    return i;
}

int short_circuit(int a, int b, int c)
{
    return (a > 1 && known(b)) || (c && known(a) && b > c) || (!a && !c);
}

int state_machine(const char* text)
{
    int state = 0, words = 0;
    for (;; ++text) {
        switch (state) {
        case 0:
            if (*text == 0)
                return words;
            if (*text != ' ') {
                state = 1;
                ++words;
            }
            break;
        case 1:
            if (*text == 0)
                return words;
            if (*text == '"')
                state = 2;
            else if (*text == ' ')
                state = 0;
            break;
        default:
            if (*text == 0)
                return -words;
            if (*text == '"')
                state = 1;
        }
    }
}

int computed_goto(const unsigned char* program, int accumulator)
{
    static const void* const labels[] = {&&add, &&subtract, &&twice, &&end};
    goto* labels[*program++ & 3];
add:
    accumulator += *program;
    goto* labels[*program++ & 3];
subtract:
    accumulator -= 3;
    goto* labels[*program++ & 3];
twice:
    accumulator *= 2;
    goto* labels[*program++ & 3];
end:
    return accumulator;
}

void trap_if(int a)
{
    if (a == 5)
        __builtin_trap();
    global_count = a;
}

long nested(long a, long b, long c, long d)
{
    long result = 0;
    for (long i = 0; i < a; ++i) {
        for (long j = i; j < b; ++j) {
            if (j & 1) {
                for (long k = 0; k < c; ++k)
                    result += i * j + k;
            } else {
                do {
                    result ^= d--;
                } while (d > j);
            }
        }
    }
    return result;
}

int binary_search(const int* in, int n, int wanted)
{
    int low = 0, high = n;
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (in[middle] < wanted)
            low = middle + 1;
        else
            high = middle;
    }
    return low < n && in[low] == wanted ? low : -1;
}

int clamp_int(int a, int low, int high)
{
    return a < low ? low : a > high ? high : a;
}

int from_table(unsigned i)
{
    return table_of_ints[i % 16];
}

unsigned count_chars(const char* s, char c)
{
    unsigned n = 0;
    while (*s)
        n += *s++ == c;
    return n;
}

int compare_texts(const char* a, const char* b)
{
    while (*a && *a == *b)
        ++a, ++b;
    return (unsigned char)*a - (unsigned char)*b;
}

long parse_number(const char* s)
{
    int negative = 0;
    long value = 0;
    if (*s == '-') {
        negative = 1;
        ++s;
    }
    for (; *s >= '0' && *s <= '9'; ++s)
        value = value * 10 + (*s - '0');
    return negative ? -value : value;
}

char* print_number(char* to, long value)
{
    char digits[24];
    int n = 0;
    unsigned long rest = value < 0 ? -(unsigned long)value : (unsigned long)value;
    do {
        digits[n++] = (char)('0' + rest % 10);
        rest /= 10;
    } while (rest);
    if (value < 0)
        *to++ = '-';
    while (n > 0)
        *to++ = digits[--n];
    *to = 0;
    return to;
}
