// SVE: functions that take and return SVE registers, and others that keep them across calls.

#if defined(__ARM_FEATURE_SVE)
#include <arm_sve.h>

extern void outside(long);
extern svfloat64_t outside_vector(svfloat64_t);

svfloat64_t sve_sum(svfloat64_t a, svfloat64_t b)
{
    return svadd_f64_x(svptrue_b64(), a, b);
}
svint32_t sve_selected(svbool_t p, svint32_t a, svint32_t b)
{
    return svsel_s32(p, a, b);
}
svbool_t sve_less(svfloat64_t a, svfloat64_t b)
{
    return svcmplt_f64(svptrue_b64(), a, b);
}

void sve_scaled(double* values, double by, long n)
{
    for (long i = 0; i < n; i += (long)svcntd()) {
        const svbool_t p = svwhilelt_b64(i, n);
        svst1_f64(p, values + i, svmul_n_f64_x(p, svld1_f64(p, values + i), by));
    }
}

double sve_dot(const double* a, const double* b, long n)
{
    svfloat64_t sum = svdup_n_f64(0);
    for (long i = 0; i < n; i += (long)svcntd()) {
        const svbool_t p = svwhilelt_b64(i, n);
        sum = svmla_f64_m(p, sum, svld1_f64(p, a + i), svld1_f64(p, b + i));
    }
    return svaddv_f64(svptrue_b64(), sum);
}

svfloat64_t sve_keeps(svfloat64_t a, svfloat64_t b)
{
    const svfloat64_t c = outside_vector(a);
    return svadd_f64_x(svptrue_b64(), svmul_f64_x(svptrue_b64(), a, b), c);
}

double sve_keeps_local(const double* p)
{
    const svfloat64_t a = svld1_f64(svptrue_b64(), p);
    outside(1);
    return svaddv_f64(svptrue_b64(), svadd_f64_x(svptrue_b64(), a, svld1_f64(svptrue_b64(), p)));
}

svbool_t sve_keeps_predicate(svbool_t p, svbool_t q)
{
    outside(2);
    return svand_b_z(svptrue_b8(), p, q);
}

long sve_count(const char* text, char wanted)
{
    long found = 0;
    svsetffr();
    for (;;) {
        const svuint8_t bytes = svldff1_u8(svptrue_b8(), (const unsigned char*)text);
        const svbool_t valid = svrdffr_z(svptrue_b8());
        const svbool_t end = svcmpeq_n_u8(valid, bytes, 0);
        const svbool_t before = svbrkb_b_z(valid, end);
        found += (long)svcntp_b8(before, svcmpeq_n_u8(before, bytes, (unsigned char)wanted));
        if (svptest_any(valid, end))
            return found;
        text += svcntp_b8(valid, valid);
        svsetffr();
    }
}

svfloat64_t sve_many(svfloat64_t a, svfloat64_t b, svfloat64_t c, svfloat64_t d, const double* p)
{
    const svbool_t all = svptrue_b64();
    svfloat64_t r = svld1_f64(all, p);
    const svfloat64_t k = outside_vector(a), l = outside_vector(b), m = outside_vector(c),
                      n = outside_vector(d);
    for (int i = 0; i < 4; ++i)
        r = svmla_f64_x(all, r, svadd_f64_x(all, k, l), svsub_f64_x(all, m, outside_vector(n)));
    return svadd_f64_x(all, r, svadd_f64_x(all, svadd_f64_x(all, a, b), svadd_f64_x(all, c, d)));
}
#endif
