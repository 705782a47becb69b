#include "elements/mjpeg/PictureMemory.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

namespace qel::mjpeg {

namespace {

struct Block {
  std::unique_ptr<uint8_t[]> memory;
  size_t bytes;
};

// The blocks that nobody uses at the moment, oldest first. One for the process: pictures of one
// size come and go through many elements.
class IdleBlocks {
 public:
  // A block of exactly that size, if there is one: the youngest, which is most likely in a cache.
  std::unique_ptr<uint8_t[]> Take(size_t bytes) {
    const std::lock_guard<std::mutex> lock(blocksAccess_);
    const auto found = std::find_if(blocks_.rbegin(), blocks_.rend(),
                                    [bytes](const Block& block) { return block.bytes == bytes; });
    if (found == blocks_.rend())
      return nullptr;
    std::unique_ptr<uint8_t[]> memory = std::move(found->memory);
    blocks_.erase(std::next(found).base());
    bytes_ -= bytes;
    return memory;
  }

  void GiveBack(Block block) {
    const std::lock_guard<std::mutex> lock(blocksAccess_);
    bytes_ += block.bytes;
    blocks_.push_back(std::move(block));
    while (bytes_ > kMaxIdlePictureMemory) {
      bytes_ -= blocks_.front().bytes;
      blocks_.pop_front();
    }
  }

 private:
  std::mutex blocksAccess_;  // guards blocks_ and bytes_
  std::deque<Block> blocks_;
  size_t bytes_ = 0;
};

}  // namespace

std::shared_ptr<uint8_t[]> TakePictureMemory(size_t bytes) {
  static const std::shared_ptr<IdleBlocks> idleBlocks = std::make_shared<IdleBlocks>();
  std::unique_ptr<uint8_t[]> memory = idleBlocks->Take(bytes);
  if (!memory)
    memory = std::make_unique_for_overwrite<uint8_t[]>(bytes);
  // Pictures that are still in use when the process ends keep the list of blocks alive.
  const auto giveBack = [bytes, blocks = idleBlocks](uint8_t* block) {
    blocks->GiveBack({std::unique_ptr<uint8_t[]>(block), bytes});
  };
  return std::shared_ptr<uint8_t[]>(memory.release(), giveBack);
}

}  // namespace qel::mjpeg
