#include <lawutil/lawutil.h>

#include <cstdio>

int main() {
    initialize_law();
    law* x = new identity_law(0, 'X');
    law* xx = new times_law(x, x);
    law* one = new constant_law(1.0);
    law* f = new plus_law(xx, one);
    std::printf("%g\n", f->eval(3.0));  // 3*3+1
    law::remove(f);
    law::remove(one);
    law::remove(xx);
    law::remove(x);
    terminate_law();
    return 0;
}
