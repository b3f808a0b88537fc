#include "idgenerator.hpp"

#include "preconditions.hpp"

guint32 IdGenerator::reserve() {
  const std::lock_guard lock{mutex_};
  do {
    ++last_id_;
  } while (last_id_ == 0 || in_use_.contains(last_id_));
  return last_id_;
}

void IdGenerator::release(guint32 id) {
  const std::lock_guard lock{mutex_};
  in_use_.erase(id);
}

IdGenerator *idgenerator_new() noexcept {
  return new IdGenerator;
}

void idgenerator_free(IdGenerator *idgen) noexcept {
  delete idgen;
}

guint32 idgenerator_reserve(IdGenerator *idgen) noexcept {
  VARRO2_ASSERT(idgen != NULL);
  return idgen->reserve();
}

void idgenerator_release(IdGenerator *idgen, guint32 id) noexcept {
  VARRO2_ASSERT(idgen != NULL);
  idgen->release(id);
}
