// The switch of the object dump. It has a source of its own, since an invalid pattern raises an exception: in
// code built without exception handling, as the finaliser is, <regex> aborts on some invalid patterns, and a
// static whose initialiser throws stays locked.
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
