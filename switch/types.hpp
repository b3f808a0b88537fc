// The declaration types: files named after the type, in a folder that came with the system and in
// one to which clients add.
#pragma once

#include "registry.hpp"

#include <string>
#include <vector>

namespace varro2::switchd {

class Types {
 public:
  enum class Outcome { done, bad_name, bad_declaration, exists, unknown, file_error };

  struct Result {
    Outcome outcome = Outcome::done;
    std::string text; // why not
  };

  Types(std::string system_folder, std::string own_folder);

  // Every type once: those of the system's folder, then those that only the other one has, each by
  // name. As for producers, a file that cannot be read gives way to the other folder's.
  std::vector<OwnedDeclaration> load_all() const;

  // The new file is whole and on the disk, or not there at all.
  Result add(const std::string &type, const EventDeclaration &declaration) const;
  Result remove(const std::string &type) const;

 private:
  OwnedDeclaration load(const std::string &type) const;
  bool exists(const std::string &type) const;

  std::string system_folder_;
  std::string own_folder_;
};

} // namespace varro2::switchd
