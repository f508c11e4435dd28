// A program that uses only the messages of the runtime layer, one of each kind of family.

#include <qv/pmx/errors.h>

#include <cstdio>

int main()
{
    constexpr qv_err_t CODES[] = {49408, 51459, 52480};
    for (const qv_err_t code : CODES) {
        const char* const text = qv_si_strerror(code);
        std::puts(text != nullptr ? text : "no message");
    }
}
