// Calls: recursion, pointers to functions, tail calls, many arguments, variable arguments, structures.

typedef __builtin_va_list va_list;
extern long outside(long);
extern double outside_double(double, double);
extern void take_pointer(void*);
extern int print(const char*, ...);
extern int vprint(const char*, va_list);

int factorial(int n)
{
    return n <= 1 ? 1 : n * factorial(n - 1);
}

int fibonacci(int n)
{
    return n < 2 ? n : fibonacci(n - 1) + fibonacci(n - 2);
}

static int is_odd(unsigned n);
__attribute__((noinline)) static int is_even(unsigned n)
{
    return n == 0 ? 1 : is_odd(n - 1);
}
__attribute__((noinline)) static int is_odd(unsigned n)
{
    return n == 0 ? 0 : is_even(n - 1);
}
int parity(unsigned n)
{
    return is_even(n) - is_odd(n);
}

int ackermann(int m, int n)
{
    if (m == 0)
        return n + 1;
    if (n == 0)
        return ackermann(m - 1, 1);
    return ackermann(m - 1, ackermann(m, n - 1));
}

void hanoi(int n, int from, int to, int by, long* moves)
{
    if (n == 0)
        return;
    hanoi(n - 1, from, by, to, moves);
    ++*moves;
    hanoi(n - 1, by, to, from, moves);
}

long tail_call(long a)
{
    return outside(a * 3 + 1);
}

long tail_call_if(long a, long b)
{
    if (a > b)
        return outside(a);
    return outside(b) + 1;
}

long by_pointer(long (*f)(long), long a)
{
    return f(a) + f(a + 1);
}

long tail_by_pointer(long (*f)(long, long), long a)
{
    return f(a, a + 1);
}

void for_each(int* values, long n, void (*f)(int*, void*), void* with)
{
    for (long i = 0; i < n; ++i)
        f(values + i, with);
}

long fold(const long* values, int n, long (*f)(long, long), long start)
{
    for (int i = 0; i < n; ++i)
        start = f(start, values[i]);
    return start;
}

long many_arguments(long a, long b, long c, long d, long e, long f, long g, long h, long i, int j, short k,
                    char l)
{
    return a - b + c * d - e + f * g + h - i * j + k + l;
}

double many_doubles(double a, float b, double c, float d, double e, double f, double g, double h, double i,
                    float j)
{
    return a * b - c / d + e * f - g + h * i + j;
}

long calls_many(long a)
{
    return many_arguments(a, 2, 3, a, 5, 6, a, 8, 9, (int)a, 11, 12) +
           many_arguments(1, 2, a, 4, 5, 6, 7, 8, a, 10, 11, 13);
}

double calls_many_doubles(double a)
{
    return many_doubles(a, 1, a, 2, 3, a, 4, 5, a, 6) +
           outside_double(a, many_doubles(1, 2, 3, 4, 5, 6, 7, 8, a, 10));
}

int sum_all(int count, ...)
{
    va_list arguments;
    __builtin_va_start(arguments, count);
    int sum = 0;
    for (int i = 0; i < count; ++i)
        sum += __builtin_va_arg(arguments, int);
    __builtin_va_end(arguments);
    return sum;
}

double sum_mixed(const char* kinds, ...)
{
    va_list arguments;
    __builtin_va_start(arguments, kinds);
    double sum = 0;
    for (; *kinds; ++kinds) {
        if (*kinds == 'd')
            sum += __builtin_va_arg(arguments, double);
        else if (*kinds == 'l')
            sum += (double)__builtin_va_arg(arguments, long);
        else
            sum += __builtin_va_arg(arguments, int);
    }
    __builtin_va_end(arguments);
    return sum;
}

int forward_arguments(const char* format, ...)
{
    va_list arguments;
    __builtin_va_start(arguments, format);
    const int n = vprint(format, arguments);
    __builtin_va_end(arguments);
    return n;
}

int calls_variable(int a, double b)
{
    return print("%d %f %s", a, b, "text") + sum_all(3, a, 2, a) + (int)sum_mixed("dli", b, 3L, a);
}

struct point {
    double x, y;
};
struct triple {
    long a, b, c;
};
struct small {
    int a;
    char b;
};
struct floats {
    float x, y, z, w;
};
struct big {
    long values[20];
};

struct point middle(struct point a, struct point b)
{
    const struct point p = {(a.x + b.x) / 2, (a.y + b.y) / 2};
    return p;
}

struct triple rotate(struct triple t)
{
    const struct triple r = {t.b, t.c, t.a};
    return r;
}

struct small changed(struct small s)
{
    s.a += s.b;
    s.b = (char)outside(s.a);
    return s;
}

struct floats cross(struct floats a, struct floats b)
{
    const struct floats r = {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x, a.w};
    return r;
}

struct big filled(long with)
{
    struct big b;
    for (int i = 0; i < 20; ++i)
        b.values[i] = with + i;
    return b;
}

long of_big(struct big b, int i)
{
    b.values[3] = outside(i);
    return b.values[i % 20] + b.values[3];
}

long passes_structures(long a)
{
    struct triple t = {a, a + 1, a + 2};
    t = rotate(rotate(t));
    const struct small s = changed((struct small){(int)a, 3});
    struct big b = filled(a);
    return t.a + s.a + of_big(b, s.b) + (long)middle((struct point){1, 2}, (struct point){3, (double)a}).y;
}

long keeps_many(long a, long b, long c, long d, long e, long f, long g, long h)
{
    const long k = outside(a), l = outside(b), m = outside(c), n = outside(d), o = outside(e), p = outside(f);
    const long q = outside(g + k), r = outside(h + l);
    return a * k + b * l + c * m + d * n + e * o + f * p + g * q + h * r +
           outside(a + b + c + d + e + f + g + h);
}

double keeps_doubles(double a, double b, double c, double d)
{
    const double k = outside_double(a, b), l = outside_double(c, d), m = outside_double(k, b);
    const double n = outside_double(a, l), o = outside_double(m, n);
    return a * k + b * l + c * m + d * n + o + outside_double(a + b, c + d + o);
}

double keeps_both(long a, double b, const float* p, int n)
{
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        sum += outside_double(b, p[i]) * (double)outside(a + i);
        if (p[i] > 3)
            sum -= outside_double(sum, b);
    }
    return sum + b + (double)a;
}

long gives_address(long a)
{
    long local[4] = {a, a, 1, 2};
    take_pointer(local);
    long other;
    take_pointer(&other);
    return local[0] + local[3] + other;
}

long quick_select(long* v, long low, long high, long k)
{
    while (low < high) {
        const long pivot = v[(low + high) / 2];
        long i = low, j = high;
        while (i <= j) {
            while (v[i] < pivot)
                ++i;
            while (v[j] > pivot)
                --j;
            if (i <= j) {
                const long t = v[i];
                v[i++] = v[j];
                v[j--] = t;
            }
        }
        if (k <= j)
            high = j;
        else if (k >= i)
            low = i;
        else
            break;
    }
    return v[k];
}

void quick_sort(double* v, long n)
{
    if (n < 2)
        return;
    const double pivot = v[n / 2];
    long i = 0, j = n - 1;
    for (;; ++i, --j) {
        while (v[i] < pivot)
            ++i;
        while (v[j] > pivot)
            --j;
        if (i >= j)
            break;
        const double t = v[i];
        v[i] = v[j];
        v[j] = t;
    }
    quick_sort(v, i);
    quick_sort(v + i, n - i);
}

struct node {
    struct node *left, *right;
    long value;
};

long tree_sum(const struct node* n)
{
    return n == 0 ? 0 : tree_sum(n->left) + n->value + tree_sum(n->right);
}

int tree_depth(const struct node* n)
{
    if (n == 0)
        return 0;
    const int l = tree_depth(n->left), r = tree_depth(n->right);
    return 1 + (l > r ? l : r);
}

struct node* insert(struct node* n, struct node* fresh)
{
    if (n == 0)
        return fresh;
    if (fresh->value < n->value)
        n->left = insert(n->left, fresh);
    else
        n->right = insert(n->right, fresh);
    return n;
}

struct node* reversed_list(struct node* n)
{
    struct node* before = 0;
    while (n) {
        struct node* const next = n->right;
        n->right = before;
        before = n;
        n = next;
    }
    return before;
}
