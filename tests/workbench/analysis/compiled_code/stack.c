// Frames: large ones, arrays of variable size, alloca, spills, volatile locals, aligned locals.

extern void fill(void*, unsigned long);
extern long use(const void*);
extern long outside(long);

long large_frame(long a)
{
    long values[1000];
    fill(values, sizeof values);
    return values[a & 511] + values[999];
}

long very_large_frame(long a)
{
    char text[300000];
    fill(text, sizeof text);
    text[a & 0xffff] = 1;
    return use(text) + text[299999];
}

long array_of_size(int n)
{
    long values[n];
    for (int i = 0; i < n; ++i)
        values[i] = i * i;
    return use(values);
}

long arrays_of_sizes(int n, int m)
{
    long sum = 0;
    for (int i = 1; i < n; ++i) {
        double values[i + m];
        fill(values, sizeof values);
        sum += (long)values[i] + use(values);
    }
    return sum;
}

char* with_alloca(unsigned long n, const char* from)
{
    char* const text = __builtin_alloca(n + 1);
    for (unsigned long i = 0; i < n; ++i)
        text[i] = from[i];
    text[n] = 0;
    return (char*)use(text);
}

long alloca_if(int a)
{
    void* p = 0;
    if (a > 3)
        p = __builtin_alloca((unsigned long)a * 8);
    fill(p, (unsigned long)a);
    return use(p);
}

int volatile_locals(int a)
{
    volatile int x = a, y = 3;
    volatile char c = 'c';
    for (volatile int i = 0; i < a; ++i)
        x += y * c;
    return x;
}

long aligned_locals(long a)
{
    _Alignas(64) long values[16];
    _Alignas(32) char more[33];
    fill(values, sizeof values);
    fill(more, sizeof more);
    return values[a & 15] + more[a & 31];
}

// More values alive than there are registers.
long spills(const long* p)
{
    const long a = p[0], b = p[1], c = p[2], d = p[3], e = p[4], f = p[5], g = p[6], h = p[7];
    const long i = p[8], j = p[9], k = p[10], l = p[11], m = p[12], n = p[13], o = p[14], q = p[15];
    const long r = p[16], s = p[17], t = p[18], u = p[19], v = p[20], w = p[21], x = p[22], y = p[23];
    const long z = p[24], aa = p[25], bb = p[26], cc = p[27], dd = p[28], ee = p[29], ff = p[30], gg = p[31];
    const long first = outside(a + b + c + d + e + f + g + h + i + j + k + l + m + n + o + q);
    return first * (a ^ gg) + (b ^ ff) * (c ^ ee) + (d ^ dd) * (e ^ cc) + (f ^ bb) * (g ^ aa) +
           (h ^ z) * (i ^ y) + (j ^ x) * (k ^ w) + (l ^ v) * (m ^ u) + (n ^ t) * (o ^ s) + (q ^ r);
}

double spills_doubles(const double* p)
{
    const double a = p[0], b = p[1], c = p[2], d = p[3], e = p[4], f = p[5], g = p[6], h = p[7], i = p[8];
    const double j = p[9], k = p[10], l = p[11], m = p[12];
    const long x = outside((long)(a + b + c + d + e + f + g + h + i + j + k + l + m));
    const double y = (double)outside(x + 1);
    return a * b + c * d * y + e * f + g * h - i * j * (double)x + k * l * m + a * m + b * l + c * k;
}

struct record {
    char kind;
    short size;
    int count;
    long value;
    double weight;
    char name[13];
};

long copies_structures(struct record* to, const struct record* from, int n)
{
    struct record kept[3];
    for (int i = 0; i < n; ++i) {
        kept[i % 3] = from[i];
        kept[i % 3].name[12] = 0;
        to[i] = kept[(i + 1) % 3];
    }
    return use(kept);
}

struct record make_record(int a)
{
    struct record r = {'a', 2, a, 4, 5.5, "name"};
    r.value = outside(a);
    return r;
}

long zeroed(long i)
{
    long values[40] = {0};
    values[i] = 1;
    fill(values, 8);
    return values[39 - i];
}

long initialised(int i)
{
    const int values[] = {3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8, 9, 7, 9, 3};
    int copy[16];
    for (int j = 0; j < 16; ++j)
        copy[j] = values[j] * i;
    return use(copy) + values[i & 15];
}

void copy_bytes(char* to, const char* from, long n)
{
    for (long i = 0; i < n; ++i)
        to[i] = from[i];
}

void move_bytes(char* to, const char* from, long n)
{
    if (to < from) {
        for (long i = 0; i < n; ++i)
            to[i] = from[i];
    } else {
        while (n-- > 0)
            to[n] = from[n];
    }
}

void set_words(unsigned* to, unsigned value, long n)
{
    for (long i = 0; i < n; ++i)
        to[i] = value;
}

void copy_block(void* to, const void* from)
{
    __builtin_memcpy(to, from, 200);
}

void clear_block(void* to)
{
    __builtin_memset(to, 0, 72);
}

long local_block(const void* from)
{
    char block[100];
    __builtin_memcpy(block, from, 100);
    block[50] = 'x';
    return use(block);
}

void transpose(double (*m)[8])
{
    double t[8][8];
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < 8; ++j)
            t[j][i] = m[i][j];
    }
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < 8; ++j)
            m[i][j] = t[i][j];
    }
}

int queens(int n, int row, unsigned columns, unsigned left, unsigned right)
{
    int count = 0;
    if (row == n)
        return 1;
    for (unsigned free = ~(columns | left | right) & ((1u << n) - 1); free; free &= free - 1) {
        const unsigned bit = free & -free;
        count += queens(n, row + 1, columns | bit, (left | bit) << 1, (right | bit) >> 1);
    }
    return count;
}
