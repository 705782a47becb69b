#pragma once

#include <atomic>
#include <cstdint>

#include "Player/QELSampleDecoder.h"
#include "qel/Elements.h"

namespace Moravel::Test {

// Containers that elements made and that are still alive: every sample holds one.
extern std::atomic<int64_t> liveContainers;
extern std::atomic<int64_t> madeContainers;

// The same elements, their outputs counted.
qel::MediaSourcePtr Counted(qel::MediaSourcePtr source);
Player::QELDecoder Counted(Player::QELDecoder decoder);

}  // namespace Moravel::Test
