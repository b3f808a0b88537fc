#include "types.hpp"

#include <varro2/eventutils.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

namespace varro2::switchd {
namespace {

constexpr std::string_view suffix = ".xml";
constexpr std::size_t longest_file_name = 255;
constexpr std::size_t largest_file = 1024 * 1024; // that the library reads

class File {
 public:
  File(const std::string &path, int flags, mode_t mode = 0)
      : descriptor_{open(path.c_str(), flags | O_CLOEXEC, mode)} {}
  ~File() {
    if (descriptor_ >= 0)
      close(descriptor_);
  }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  bool is_open() const { return descriptor_ >= 0; }
  bool sync() const { return fsync(descriptor_) == 0; }
  bool set_mode(mode_t mode) const { return fchmod(descriptor_, mode) == 0; }
  bool write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t written = ::write(descriptor_, text.data(), text.size());
      if (written < 0 && errno == EINTR)
        continue;
      if (written < 0)
        return false;
      text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

 private:
  int descriptor_;
};

std::string path_in(const std::string &folder, const std::string &type) {
  return folder + "/" + type + std::string{suffix};
}

// Begins with a point, so that it is nobody's type; the next attempt replaces what a power failure
// left behind.
std::string temporary_path_in(const std::string &folder, const std::string &type) {
  return folder + "/." + type + std::string{suffix} + ".new";
}

bool is_type_name(const std::string &type) {
  const bool printable = std::none_of(type.begin(), type.end(), [](char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x20 || code == 0x7F || character == '/';
  });
  return !type.empty() && type.front() != '.' && printable &&
         temporary_path_in("", type).size() - 1 <= longest_file_name;
}

Types::Result bad_name(const std::string &type) {
  return {Types::Outcome::bad_name, "'" + type + "' cannot be the name of a declaration type."};
}

Types::Result file_error(const std::string &what, const std::string &path) {
  const int number = errno;
  return {Types::Outcome::file_error, what + " '" + path + "': " + g_strerror(number)};
}

std::set<std::string> types_in(const std::string &folder) {
  std::set<std::string> types;
  std::error_code failure;
  for (std::filesystem::directory_iterator at{folder, failure}, end; !failure && at != end;
       at.increment(failure)) {
    const std::string name = at->path().filename().string();
    if (name.size() > suffix.size() && name.ends_with(suffix) && name.front() != '.')
      types.insert(name.substr(0, name.size() - suffix.size()));
  }
  return types;
}

// Neither too large nor something else than text. Asked of the text, not of the file: a disk that
// fails is no fault of the declaration.
bool can_be_read_back(const char *xml) {
  if (std::strlen(xml) > largest_file)
    return false;
  const OwnedDeclaration declaration{
      static_cast<EventDeclaration *>(event_utils_deserialize_xml(xml, IT_EVENT_DECLARATION))};
  return declaration != nullptr;
}

bool sync_folder(const std::string &folder) {
  const File directory{folder, O_RDONLY | O_DIRECTORY};
  return directory.is_open() && directory.sync();
}

// Producers of every user read it, whatever the umask is.
bool write_whole(const std::string &path, std::string_view text) {
  const File file{path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600};
  return file.is_open() && file.set_mode(0644) && file.write(text) && file.sync();
}

} // namespace

Types::Types(std::string system_folder, std::string own_folder)
    : system_folder_{std::move(system_folder)}, own_folder_{std::move(own_folder)} {}

OwnedDeclaration Types::load(const std::string &type) const {
  for (const std::string &folder : {system_folder_, own_folder_})
    if (EventDeclaration *declaration =
            event_declaration_deserialize_xml_file(path_in(folder, type).c_str()))
      return OwnedDeclaration{declaration};
  return nullptr;
}

std::vector<OwnedDeclaration> Types::load_all() const {
  const std::set<std::string> system_types = types_in(system_folder_);
  std::vector<std::string> types{system_types.begin(), system_types.end()};
  for (const std::string &type : types_in(own_folder_))
    if (!system_types.contains(type))
      types.push_back(type);

  std::vector<OwnedDeclaration> declarations;
  for (const std::string &type : types) {
    if (OwnedDeclaration declaration = load(type))
      declarations.push_back(std::move(declaration));
    else
      g_warning("The file of the declaration type '%s' cannot be used", type.c_str());
  }
  return declarations;
}

bool Types::exists(const std::string &type) const {
  for (const std::string &folder : {system_folder_, own_folder_}) {
    struct stat status;
    if (lstat(path_in(folder, type).c_str(), &status) == 0)
      return true;
  }
  return false;
}

Types::Result Types::add(const std::string &type, const EventDeclaration &declaration) const {
  if (!is_type_name(type))
    return bad_name(type);
  if (exists(type))
    return {Outcome::exists, "The declaration type '" + type + "' exists already."};
  if (g_mkdir_with_parents(own_folder_.c_str(), 0755) != 0)
    return file_error("Could not create the folder", own_folder_);
  const OwnedText xml{event_declaration_serialize_xml(&declaration)};
  if (!can_be_read_back(xml.get()))
    return {Outcome::bad_declaration,
            "The declaration for '" + type + "' cannot be kept as a file."};

  const std::string path = path_in(own_folder_, type);
  const std::string temporary = temporary_path_in(own_folder_, type);
  if (!write_whole(temporary, xml.get())) {
    Result result = file_error("Could not write", temporary);
    unlink(temporary.c_str());
    return result;
  }
  if (rename(temporary.c_str(), path.c_str()) != 0) {
    Result result = file_error("Could not put in place", path);
    unlink(temporary.c_str());
    return result;
  }
  if (!sync_folder(own_folder_)) {
    Result result = file_error("Could not sync the folder", own_folder_);
    unlink(path.c_str());
    return result;
  }
  return {};
}

Types::Result Types::remove(const std::string &type) const {
  if (!is_type_name(type))
    return bad_name(type);
  const std::string path = path_in(own_folder_, type);
  if (unlink(path.c_str()) != 0) {
    if (errno == ENOENT || errno == ENOTDIR)
      return {Outcome::unknown, "No client added a declaration type '" + type + "'."};
    return file_error("Could not remove", path);
  }
  if (!sync_folder(own_folder_))
    return file_error("Could not sync the folder", own_folder_);
  return {};
}

} // namespace varro2::switchd
