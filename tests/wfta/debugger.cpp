// gdb knows kernels by name once it has loaded their dumps, without being told an address.

#include "tests/support/gdb_session.hpp"

#include <gtest/gtest.h>

namespace {

using support::break_at_answer_kernel;

TEST(Gdb, BreaksAtAKernelByNameWithOnlyItsDumpLoaded)
{
    break_at_answer_kernel(DEBUGGEE, EMULATOR,
                           {"add-symbol-file answer_kernel", "add-symbol-file calling_kernel"});
}

} // namespace
