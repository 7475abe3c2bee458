// Arithmetic: bits, wide integers, conversions, floating point, atomics.

typedef __int128 wide;
typedef unsigned __int128 unsigned_wide;
extern double outside_double(double, double);

unsigned reversed_bits(unsigned v)
{
    unsigned r = 0;
    for (int i = 0; i < 32; ++i, v >>= 1)
        r = r << 1 | (v & 1);
    return r;
}

int ones(unsigned long v)
{
    return __builtin_popcountl(v);
}
int leading(unsigned v)
{
    return v ? __builtin_clz(v) : 32;
}
int trailing(unsigned long v)
{
    return v ? __builtin_ctzl(v) : 64;
}
unsigned swapped(unsigned v)
{
    return __builtin_bswap32(v);
}
unsigned long rotated(unsigned long v, int by)
{
    return v << (by & 63) | v >> (-by & 63);
}
unsigned power_of_two_from(unsigned v)
{
    --v;
    v |= v >> 1;
    v |= v >> 2;
    v |= v >> 4;
    v |= v >> 8;
    v |= v >> 16;
    return v + 1;
}
unsigned long gray(unsigned long v)
{
    return v ^ v >> 1;
}
unsigned field(unsigned long v, int at)
{
    return (unsigned)(v >> at) & 0x3ff;
}
unsigned long inserted(unsigned long v, unsigned w)
{
    return (v & ~0xff00ul) | (unsigned long)(w & 0xff) << 8;
}
int parity_of(unsigned v)
{
    v ^= v >> 16;
    v ^= v >> 8;
    v ^= v >> 4;
    return 0x6996 >> (v & 15) & 1;
}

wide wide_sum(wide a, wide b)
{
    return a + b;
}
wide wide_product(wide a, long b)
{
    return a * b;
}
unsigned_wide wide_shift(unsigned_wide a, int by)
{
    return a << by | a >> 3;
}
wide wide_quotient(wide a, wide b)
{
    return a / b;
}
int wide_less(wide a, wide b)
{
    return a < b;
}
unsigned long high_product(unsigned long a, unsigned long b)
{
    return (unsigned long)((unsigned_wide)a * b >> 64);
}
wide wide_of_many(const long* p, int n)
{
    wide sum = 0;
    for (int i = 0; i < n; ++i)
        sum += (wide)p[i] * p[n - 1 - i];
    return sum;
}
wide seventh(long a, long b, long c, wide d, long e, wide f)
{
    return a + b + c + d * e - f;
}

int overflows(int a, int b, int* to)
{
    return __builtin_add_overflow(a, b, to);
}
unsigned long carried(unsigned long* a, const unsigned long* b, int n)
{
    unsigned long carry = 0;
    for (int i = 0; i < n; ++i) {
        const unsigned_wide s = (unsigned_wide)a[i] + b[i] + carry;
        a[i] = (unsigned long)s;
        carry = (unsigned long)(s >> 64);
    }
    return carry;
}

unsigned greatest_divisor(unsigned a, unsigned b)
{
    while (b) {
        const unsigned t = a % b;
        a = b;
        b = t;
    }
    return a;
}
unsigned long power_modulo(unsigned long base, unsigned e, unsigned long m)
{
    unsigned long r = 1;
    for (; e; e >>= 1, base = base * base % m) {
        if (e & 1)
            r = r * base % m;
    }
    return r;
}
unsigned square_root(unsigned long v)
{
    unsigned long r = 0, bit = 1ul << 62;
    while (bit > v)
        bit >>= 2;
    for (; bit; bit >>= 2) {
        if (v >= r + bit) {
            v -= r + bit;
            r = (r >> 1) + bit;
        } else {
            r >>= 1;
        }
    }
    return (unsigned)r;
}
unsigned checksum(const unsigned char* p, long n)
{
    unsigned c = ~0u;
    while (n-- > 0) {
        c ^= *p++;
        for (int i = 0; i < 8; ++i)
            c = c >> 1 ^ (0xedb88320 & -(c & 1));
    }
    return ~c;
}
unsigned long hash(const char* s)
{
    unsigned long h = 0xcbf29ce484222325;
    while (*s)
        h = (h ^ (unsigned char)*s++) * 0x100000001b3;
    return h;
}

double polynomial(double x)
{
    return 1.5 + x * (2.25 + x * (-3.125 + x * (4.0625 + x * 0.3)));
}
float polynomial_float(float x)
{
    return ((0.25f * x + 1.1f) * x - 3.3f) * x + 7.7f;
}
double newton(double x)
{
    double r = x > 1 ? x : 1;
    for (int i = 0; i < 20; ++i)
        r = 0.5 * (r + x / r);
    return r;
}
int rounded(double x)
{
    return (int)(x < 0 ? x - 0.5 : x + 0.5);
}
unsigned char saturated(float x)
{
    return x < 0 ? 0 : x > 255 ? 255 : (unsigned char)x;
}
double of_unsigned(unsigned long v)
{
    return (double)v;
}
float narrowed(double x)
{
    return (float)x;
}
double absolute(double x)
{
    return __builtin_fabs(x);
}
double root(double x)
{
    return __builtin_sqrt(x < 0 ? -x : x);
}
double fused(double a, double b, double c)
{
    return __builtin_fma(a, b, c);
}
int ordered(double a, double b)
{
    return a < b ? -1 : a > b ? 1 : a == b ? 0 : 2;
}
double choose(int c, double a, double b)
{
    return c ? a : b;
}
double mean(const double* p, int n)
{
    double s = 0;
    for (int i = 0; i < n; ++i)
        s += p[i];
    return n ? s / n : 0;
}
void normalise(float* v)
{
    const float l = 1 / __builtin_sqrtf(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    v[0] *= l;
    v[1] *= l;
    v[2] *= l;
}
double integral(double a, double b, int n)
{
    const double h = (b - a) / n;
    double s = (outside_double(a, h) + outside_double(b, h)) / 2;
    for (int i = 1; i < n; ++i)
        s += outside_double(a + i * h, h);
    return s * h;
}
int mandelbrot(double x, double y)
{
    double a = 0, b = 0;
    int i = 0;
    for (; i < 100 && a * a + b * b < 4; ++i) {
        const double t = a * a - b * b + x;
        b = 2 * a * b + y;
        a = t;
    }
    return i;
}
long double quad(long double a, long double b)
{
    return a * b + 1;
}

typedef double two_doubles __attribute__((vector_size(16)));
typedef int four_ints __attribute__((vector_size(16)));
two_doubles vector_sum(two_doubles a, two_doubles b, const two_doubles* c)
{
    return a * b + *c;
}
four_ints vector_mix(four_ints a, four_ints b)
{
    return (a & b) + (a ^ (b << 2));
}
int vector_lane(four_ints a, int i)
{
    return a[i & 3];
}
four_ints vector_set(four_ints a, int i, int v)
{
    a[i & 3] = v;
    return a;
}
two_doubles vector_keeps(two_doubles a, double b)
{
    const double c = outside_double(a[0], b);
    return a * c + outside_double(a[1], c);
}

int atomic_add(int* p, int v)
{
    return __atomic_fetch_add(p, v, __ATOMIC_SEQ_CST);
}
long atomic_swap(long* p, long v)
{
    return __atomic_exchange_n(p, v, __ATOMIC_ACQ_REL);
}
int atomic_compare(int* p, int expected, int desired)
{
    return __atomic_compare_exchange_n(p, &expected, desired, 0, __ATOMIC_SEQ_CST, __ATOMIC_RELAXED);
}
int atomic_load(const int* p)
{
    return __atomic_load_n(p, __ATOMIC_ACQUIRE);
}
void atomic_store(int* p, int v)
{
    __atomic_store_n(p, v, __ATOMIC_RELEASE);
}
void spin(int* lock)
{
    while (__atomic_test_and_set(lock, __ATOMIC_ACQUIRE))
        ;
    __atomic_clear(lock, __ATOMIC_RELEASE);
}
long cycles(void)
{
    long t;
    __asm__ volatile("mrs %0, cntvct_el0" : "=r"(t));
    return t;
}
