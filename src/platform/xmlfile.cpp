#include "xmlnode.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace varro2;

namespace {

class File {
 public:
  // Not waiting: opening a FIFO would otherwise block until somebody writes to it.
  explicit File(const char *path)
      : descriptor_{open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)} {}
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  ~File() {
    if (descriptor_ >= 0)
      close(descriptor_);
  }

  // What was wrong, or an empty text.
  std::string read_into(std::string &content) const {
    struct stat status;
    if (descriptor_ < 0 || fstat(descriptor_, &status) < 0)
      return g_strerror(errno);
    if (!S_ISREG(status.st_mode))
      return "not a regular file";
    // The size is counted while reading: a file may grow, and some have none beforehand.
    char piece[16 * 1024];
    while (content.size() <= xml_file_limit) {
      const ssize_t count = read(descriptor_, piece, sizeof piece);
      if (count < 0 && errno == EINTR)
        continue;
      if (count < 0)
        return g_strerror(errno);
      if (count == 0)
        return {};
      content.append(piece, static_cast<std::size_t>(count));
    }
    return "larger than 1 MiB";
  }

 private:
  int descriptor_;
};

} // namespace

XmlTree varro2::load_xml(const char *path, XmlFault *fault) {
  std::string content;
  std::string problem = File{path}.read_into(content);
  if (problem.empty())
    return parse_xml(content, XmlNames::without_prefix, fault);
  if (fault)
    *fault = {std::move(problem), 0, 0};
  return {};
}
