#pragma once

#include <cstddef>
#include <new>

namespace qel {

// For the places where a library written in C tells that it got no memory: does what `operator new`
// does when there is none. The host's new-handler is called, if there is one; where that returns,
// std::bad_alloc is thrown.
[[noreturn]] inline void FailOutOfMemory() {
  if (const std::new_handler handler = std::get_new_handler())
    handler();
  throw std::bad_alloc();
}

// For those that do not tell want of memory from other failures: does the same when there are no
// `bytes` to be had. (Called as functions: of a new-expression without a use the compiler makes
// nothing.)
inline void TryMemory(std::size_t bytes) {
  ::operator delete(::operator new(bytes));
}

}  // namespace qel
