// Coverage of forked children, in a build that scripts/coverage measures; nothing in any other.
//
// A child that ends by _exit or by a signal writes no profile, and a child with a file size limit or without
// descriptors could not. So it hands its counters to its parent, through memory that both see.
#pragma once

namespace support {

/// In a child that is about to end, also in a signal handler.
void hand_over_coverage();

/// In a child: hands over when a fatal signal of default action ends it.
void hand_over_coverage_at_crashes();

/// In the parent, after the child has ended.
void take_over_coverage();

} // namespace support
