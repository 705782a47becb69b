#pragma once

#if __cplusplus < 202002L
#error "These headers are C++20: compile with -std=c++20"
#endif

// Types that cross the border between shared libraries keep their type information visible, so
// that exceptions are caught and casts succeed on both sides of it.
#if defined(_WIN32)
#define QEL_API
#else
#define QEL_API __attribute__((visibility("default")))
#endif
