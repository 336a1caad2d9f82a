#include "secret_file.h"

#include <sys/stat.h>

namespace ominspect::gateway {

std::optional<Error> CheckSecret(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IRWXO) != 0) {
        return WrongUse("everybody can read or change it; chmod o= makes it secret");
    }
    return std::nullopt;
}

}  // namespace ominspect::gateway
