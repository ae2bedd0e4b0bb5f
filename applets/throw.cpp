// What the C++ library calls when a bound is broken. This code has no exceptions, so the program ends here; with the
// library's own definitions every start would also set up the memory that exceptions are made in.
#include <cstdlib>
#include <string_view>

#define ABORT_IN(function)                                                                                             \
    void function                                                                                                      \
    {                                                                                                                  \
        abort();                                                                                                       \
    }

namespace std
{

ABORT_IN(__throw_bad_exception())
ABORT_IN(__throw_bad_alloc())
ABORT_IN(__throw_bad_array_new_length())
ABORT_IN(__throw_bad_cast())
ABORT_IN(__throw_bad_typeid())
ABORT_IN(__throw_logic_error(const char *))
ABORT_IN(__throw_domain_error(const char *))
ABORT_IN(__throw_invalid_argument(const char *))
ABORT_IN(__throw_length_error(const char *))
ABORT_IN(__throw_out_of_range(const char *))
ABORT_IN(__throw_out_of_range_fmt(const char *, ...))
ABORT_IN(__throw_runtime_error(const char *))
ABORT_IN(__throw_range_error(const char *))
ABORT_IN(__throw_overflow_error(const char *))
ABORT_IN(__throw_underflow_error(const char *))

} // namespace std
