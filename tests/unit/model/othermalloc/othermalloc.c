/* A malloc as somebody may put before the C library's: it has no malloc_usable_size, and that of
 * the C library takes what stands before a block for something else. What is freed is not used
 * again; who wrote past a block ends the process. */
#define _GNU_SOURCE
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { header = 16, guard = 16, filled = 0xfd };

static char pool[(size_t)1 << 30];
static size_t used;

static void put(char *block, size_t size) {
  /* By who looks for the size of a block of the C library: as that of a mapped one. */
  const size_t misread = ((size + 80) & ~(size_t)7) | 2;
  memcpy(block - sizeof misread, &misread, sizeof misread);
  memcpy(block - header, &size, sizeof size);
  memset(block + size, filled, guard);
}

static size_t size_of(const char *block) {
  size_t size;
  memcpy(&size, block - header, sizeof size);
  return size;
}

void *memalign(size_t alignment, size_t size) {
  const size_t room = (header + alignment + size + guard + 15) & ~(size_t)15;
  const size_t at = __atomic_fetch_add(&used, room, __ATOMIC_SEQ_CST);
  if (at + room > sizeof pool)
    return NULL;
  const uintptr_t first = (uintptr_t)(pool + at) + header;
  char *block = (char *)((first + alignment - 1) & ~(uintptr_t)(alignment - 1));
  put(block, size);
  return block;
}

void *malloc(size_t size) {
  return memalign(16, size);
}

void free(void *memory) {
  const char *block = memory;
  if (block < pool || block >= pool + sizeof pool)
    return;
  for (size_t at = 0; at < guard; ++at)
    if ((unsigned char)block[size_of(block) + at] != filled) {
      static const char message[] = "somebody wrote past a block\n";
      if (write(STDERR_FILENO, message, sizeof message - 1) < 0)
        _exit(3);
      _exit(2);
    }
}

void *calloc(size_t count, size_t size) {
  return malloc(count * size); /* the pool is zero, and used once */
}

void *realloc(void *memory, size_t size) {
  void *block = malloc(size);
  if (memory != NULL && block != NULL) {
    const size_t before = size_of(memory);
    memcpy(block, memory, before < size ? before : size);
    free(memory);
  }
  return block;
}

int posix_memalign(void **memory, size_t alignment, size_t size) {
  *memory = memalign(alignment, size);
  return *memory != NULL ? 0 : ENOMEM;
}

void *aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
