// The switch of the object dump. A source of its own: a pattern that does not compile raises an exception,
// and in code built without exception handling, as the finaliser is, <regex> aborts at some of them, and a
// static whose initialiser an exception leaves stays locked.
#pragma once

#include <string>

namespace vorna::wfta {

/// Whether the regular expression (ECMAScript) in VORNA_WFTA_DUMP_KERNEL is found in a kernel's name; false
/// for every name if the variable is unset. Reads the variable in the first call and never again.
///
/// Throws std::regex_error if the pattern does not compile, in every call. May be called by several threads
/// at once.
bool want_dump_kernel(const std::string& fn_name);

} // namespace vorna::wfta
