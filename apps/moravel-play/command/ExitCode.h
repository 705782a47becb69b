#pragma once

namespace Moravel::Play {

// What the program tells whoever started it; `--help` lists them.
enum ExitCode : int {
  kExitFine = 0,
  kExitPicturesLost = 1,  // some pictures missing, damaged or late
  kExitUsage = 2,
  kExitUnreadable = 3,  // a storage server or a track could not be reached or read
  kExitUnwritable = 4,  // a picture could not be written
  kExitInterrupted = 130,
};

}  // namespace Moravel::Play
