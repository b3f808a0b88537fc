// Takes and gives back blocks of growing size, each filled to its end, where the malloc may look.
#include "keptblocks.hpp"

#include <cstring>

int main() {
  for (std::size_t size = 1100; size < 4000; size += 4) {
    void *block = varro2::take_block(size);
    std::memset(block, 'x', size);
    varro2::give_back_block(block);
  }
  varro2::free_kept_blocks();
}
