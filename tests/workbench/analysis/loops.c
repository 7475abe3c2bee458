/* Loops of many shapes, for the comparison of the loops that are found with those that the compiler knows. */

int work(int);

int one_loop(const int* p, int n)
{
    int sum = 0;
    for (int i = 0; i < n; ++i)
        sum += p[i] * work(i);
    return sum;
}

int do_while(int n)
{
    do
        n = work(n);
    while (n > 0);
    return n;
}

int nested(const int* p, int rows, int columns)
{
    int sum = 0;
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < columns; ++j)
            sum += work(p[i * columns + j]);
        sum = work(sum);
    }
    return sum;
}

int three_deep(int n)
{
    int sum = 0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j)
            for (int k = j; k < n; ++k)
                sum += work(sum + k);
    return sum;
}

int two_in_one(int n)
{
    int sum = 0;
    while (work(n)) {
        for (int i = 0; i < n; ++i)
            sum += work(i);
        for (int i = n; i > 0; --i)
            sum -= work(i);
    }
    return sum;
}

int several_latches(int n)
{
    for (int i = 0; i < n; ++i) {
        if (work(i) == 1)
            continue;
        if (work(i) == 2)
            continue;
        if (work(i) == 3)
            break;
        work(-i);
    }
    return n;
}

int early_return(const int* p, int n)
{
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            if (p[j] == i)
                return work(j);
        }
    }
    return -1;
}

int endless(int n)
{
    for (;;)
        n = work(n);
}

/* Entered in the middle: two entries, so the circle as a whole is not a natural loop. */
int two_entries(int n)
{
    if (work(n))
        goto inside;
again:
    n = work(n + 1);
inside:
    n = work(n + 2);
    if (n)
        goto again;
    return n;
}

int branches_inside(int n)
{
    int sum = 0;
    while (n-- > 0) {
        if (work(n))
            sum += work(1);
        else
            sum -= work(2);
        switch (work(3)) {
        case 0:
            sum ^= 1;
            break;
        case 7:
            sum = work(sum);
            break;
        case 9:
            return sum;
        }
    }
    return sum;
}

int after_each_other(int n)
{
    while (work(n) > 1)
        ++n;
    while (work(n) > 2)
        ++n;
    return n;
}

int no_loop(int n)
{
    return work(n) > 3 ? work(4) : work(5);
}
