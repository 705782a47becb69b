#pragma once

// What the shared library shows to its host; everything else in it is hidden.
#if defined(_WIN32)
#define MORAVEL_PLAYER_API
#else
#define MORAVEL_PLAYER_API __attribute__((visibility("default")))
#endif
