#pragma once

// The seam between blocking waits and the calling thread's aborter: waits add this descriptor
// to their poll set and stop with user_abort once it becomes readable.
namespace Vesk {

// Descriptor that becomes readable when the calling thread is asked to stop; -1 without one.
int currentAbortDescriptor() noexcept;

} // namespace Vesk
