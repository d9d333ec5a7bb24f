#include "transfer/seal.h"

#include <stdexcept>

// Debian has no libsodium to build with for Windows. There are no options for keys then, and so no key.
namespace {

[[noreturn]] void refuse() { throw std::runtime_error("this build of kosc knows no keys"); }

} // namespace

secret_key::~secret_key() = default; // nothing was put in

std::optional<secret_key> key_of(const key_options& options, bool)
{
    if (!options.key_file.empty() || !options.phrase_file.empty() || options.ask) {
        refuse();
    }
    return std::nullopt;
}

payload seal(const payload&, const secret_key&, uint64_t) { refuse(); }

std::optional<payload> seal_opener::open(const payload&, uint64_t, std::string&) { refuse(); }
