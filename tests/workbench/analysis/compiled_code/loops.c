// Loops over arrays, for each element type: those that compilers unroll, vectorise or leave alone.

#define FOR_TYPE(name, type)                                                                                 \
    type sum_##name(const type* from, long count)                                                            \
    {                                                                                                        \
        type sum = 0;                                                                                        \
        for (long i = 0; i < count; ++i)                                                                     \
            sum += from[i];                                                                                  \
        return sum;                                                                                          \
    }                                                                                                        \
    void add_##name(type* restrict to, const type* restrict a, const type* restrict b, int count)            \
    {                                                                                                        \
        for (int i = 0; i < count; ++i)                                                                      \
            to[i] = (type)(a[i] + b[i]);                                                                     \
    }                                                                                                        \
    void scale_##name(type* values, type by, unsigned count)                                                 \
    {                                                                                                        \
        while (count--)                                                                                      \
            *values++ *= by;                                                                                 \
    }                                                                                                        \
    type dot_##name(const type* a, const type* b, long count)                                                \
    {                                                                                                        \
        type sum = 0;                                                                                        \
        for (long i = count - 1; i >= 0; --i)                                                                \
            sum += a[i] * b[i];                                                                              \
        return sum;                                                                                          \
    }                                                                                                        \
    long find_##name(const type* in, long count, type wanted)                                                \
    {                                                                                                        \
        for (long i = 0; i < count; ++i) {                                                                   \
            if (in[i] == wanted)                                                                             \
                return i;                                                                                    \
        }                                                                                                    \
        return -1;                                                                                           \
    }                                                                                                        \
    type greatest_##name(const type* from, long count)                                                       \
    {                                                                                                        \
        type greatest = from[0];                                                                             \
        for (long i = 1; i < count; ++i)                                                                     \
            greatest = from[i] > greatest ? from[i] : greatest;                                              \
        return greatest;                                                                                     \
    }                                                                                                        \
    void reverse_##name(type* values, long count)                                                            \
    {                                                                                                        \
        for (long i = 0, j = count - 1; i < j; ++i, --j) {                                                   \
            const type kept = values[i];                                                                     \
            values[i] = values[j];                                                                           \
            values[j] = kept;                                                                                \
        }                                                                                                    \
    }                                                                                                        \
    void multiply_matrices_##name(type* to, const type* a, const type* b, int n)                             \
    {                                                                                                        \
        for (int i = 0; i < n; ++i) {                                                                        \
            for (int j = 0; j < n; ++j) {                                                                    \
                type sum = 0;                                                                                \
                for (int k = 0; k < n; ++k)                                                                  \
                    sum += a[i * n + k] * b[k * n + j];                                                      \
                to[i * n + j] = sum;                                                                         \
            }                                                                                                \
        }                                                                                                    \
    }                                                                                                        \
    void sort_##name(type* values, int count)                                                                \
    {                                                                                                        \
        for (int i = 1; i < count; ++i) {                                                                    \
            const type value = values[i];                                                                    \
            int j = i;                                                                                       \
            for (; j > 0 && values[j - 1] > value; --j)                                                      \
                values[j] = values[j - 1];                                                                   \
            values[j] = value;                                                                               \
        }                                                                                                    \
    }                                                                                                        \
    void interleave_##name(type* restrict to, const type* restrict a, const type* restrict b, long count)    \
    {                                                                                                        \
        for (long i = 0; i < count; ++i) {                                                                   \
            to[2 * i] = a[i];                                                                                \
            to[2 * i + 1] = b[i];                                                                            \
        }                                                                                                    \
    }                                                                                                        \
    void filter_##name(type* restrict to, const type* restrict from, long count)                             \
    {                                                                                                        \
        for (long i = 2; i < count - 2; ++i)                                                                 \
            to[i] = (type)(from[i - 2] + 2 * from[i - 1] + 3 * from[i] + 2 * from[i + 1] + from[i + 2]);     \
    }                                                                                                        \
    void pick_##name(type* restrict to, const type* restrict from, const int* restrict which, long count)    \
    {                                                                                                        \
        for (long i = 0; i < count; ++i) {                                                                   \
            if (which[i] >= 0)                                                                               \
                to[i] = from[which[i]];                                                                      \
        }                                                                                                    \
    }

FOR_TYPE(byte, unsigned char)
FOR_TYPE(half, short)
FOR_TYPE(word, int)
FOR_TYPE(unsigned, unsigned)
FOR_TYPE(long, long)
FOR_TYPE(float, float)
FOR_TYPE(double, double)

void butterflies(double* restrict real, double* restrict imaginary, const double* restrict factors,
                 long count)
{
    for (long i = 0; i < count; ++i) {
        const double a = real[2 * i], b = imaginary[2 * i], c = real[2 * i + 1], d = imaginary[2 * i + 1];
        const double e = c * factors[0] - d * factors[1], f = c * factors[1] + d * factors[0];
        real[2 * i] = a + e;
        imaginary[2 * i] = b + f;
        real[2 * i + 1] = a - e;
        imaginary[2 * i + 1] = b - f;
        factors += 2;
    }
}

// More values at a time than there are vector registers.
void transform_16(double* values, long stride)
{
    double v[32], t[32];
    for (int i = 0; i < 32; ++i)
        v[i] = values[i * stride];
    for (int span = 16; span >= 1; span /= 2) {
        for (int i = 0; i < 32; ++i)
            t[i] = (i & span) ? v[i - span] - v[i] * 0.7071 : v[i] + v[i + span] * 1.25;
        for (int i = 0; i < 32; ++i)
            v[i] = t[i];
    }
    for (int i = 0; i < 32; ++i)
        values[i * stride] = v[i];
}
