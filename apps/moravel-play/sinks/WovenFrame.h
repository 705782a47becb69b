#pragma once

#include "qel/Samples.h"

namespace Moravel::Play {

// The frame of two fields of the same size and format: twice as high, the top field's rows the even
// ones. Where one field is missing, the other one's rows take their place; nothing comes of
// nothing. Any thread.
qel::VideoSampleConstPtr WeaveFields(const qel::VideoSampleConstPtr& top,
                                     const qel::VideoSampleConstPtr& bottom);

}  // namespace Moravel::Play
