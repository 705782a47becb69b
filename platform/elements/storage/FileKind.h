#pragma once

#include "elements/storage/ReadAheadCache.h"

namespace qel {

enum class FileKind { Avi, Mov };

// By the first bytes of the file. Throws QELRuntimeError for another kind, that names it and the
// command that makes a track of it.
FileKind ReadFileKind(ReadAheadCache& file);

}  // namespace qel
