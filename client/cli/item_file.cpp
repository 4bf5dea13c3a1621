#include "item_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "appcfg/error.h"
#include "exit_status.h"

namespace appcfg::cli {
namespace {

using Json = nlohmann::json;
using namespace SystemServer;

constexpr size_t ITEM_FILE_LIMIT = 64 << 10;
constexpr size_t KEY_FILE_LIMIT = 4096;

struct Descriptor {
    explicit Descriptor(int number) : fd(number) {}
    ~Descriptor() { close(fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int fd;
};

[[noreturn]] void ThrowErrno(const std::string& path) {
    throw UsageError(path + ": " + std::generic_category().message(errno));
}

struct stat StatOf(const Descriptor& file, const std::string& path) {
    struct stat status {};
    if (fstat(file.fd, &status) != 0) {
        ThrowErrno(path);
    }
    return status;
}

// Non-blocking, so that a FIFO without a writer is refused and not waited for.
int OpenForReading(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        ThrowErrno(path);
    }
    return fd;
}

// Leaves no second copy of a text of at most one piece: it may be a key.
std::string ReadAll(const Descriptor& file, const std::string& path, size_t limit) {
    if (!S_ISREG(StatOf(file, path).st_mode)) {
        throw UsageError(path + ": not a regular file");
    }
    std::string text;
    char piece[KEY_FILE_LIMIT];
    text.reserve(2 * sizeof(piece));
    ssize_t count = 0;
    while ((count = read(file.fd, piece, sizeof(piece))) != 0) {
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            ThrowErrno(path);
        }
        text.append(piece, static_cast<size_t>(count));
        explicit_bzero(piece, sizeof(piece));
        if (text.size() > limit) {
            throw UsageError(path + ": larger than " + std::to_string(limit) + " bytes");
        }
    }
    return text;
}

template <class Value>
struct Named {
    const char* name;
    Value value;
};

constexpr Named<ConfigStorageType> STORAGES[] = {
    {"json", ConfigStorageType::JSON}, {"xml", ConfigStorageType::XML}, {"ini", ConfigStorageType::INI}};

constexpr Named<ConfigSaveStrategy> SAVES[] = {{"instant", ConfigSaveStrategy::INSTANT},
                                               {"delay", ConfigSaveStrategy::DELAY},
                                               {"timing", ConfigSaveStrategy::TIMING},
                                               {"none", ConfigSaveStrategy::NONE}};

constexpr Named<ConfigBackupStrategy> BACKUPS[] = {{"instant", ConfigBackupStrategy::INSTANT},
                                                   {"delay", ConfigBackupStrategy::DELAY},
                                                   {"timing", ConfigBackupStrategy::TIMING},
                                                   {"none", ConfigBackupStrategy::NONE}};

// The members of one object of an item file, each of which must be asked for by name.
class Members {
public:
    Members(const Json& object, std::string where) : m_object(object), m_where(std::move(where)) {
        if (!m_object.is_object()) {
            Refuse("is not an object");
        }
    }

    // Names of the table, below "outer." or at the top.
    void AllowKnown(const std::string& outer = "") const {
        std::string known;
        for (const ItemMember& member : ItemMembers()) {
            known += known.empty() ? member.name : std::string(", ") + member.name;
        }
        for (const auto& member : m_object.items()) {
            const bool isKnown =
                std::any_of(ItemMembers().begin(), ItemMembers().end(), [&](const ItemMember& allowed) {
                    const std::string name = outer + member.key();
                    return name == allowed.name || std::string(allowed.name).rfind(name + ".", 0) == 0;
                });
            if (!isKnown) {
                Refuse("unknown member \"" + member.key() + "\"; known are " + known);
            }
        }
    }

    bool Has(const char* name) const { return m_object.contains(name); }
    const Json& At(const char* name) const { return m_object.at(name); }

    std::string Text(const char* name) const {
        if (!Has(name)) {
            Refuse("\"" + std::string(name) + "\" is missing");
        }
        const Json& value = m_object.at(name);
        if (!value.is_string()) {
            Refuse("\"" + std::string(name) + "\" is not a string");
        }
        return value.get<std::string>();
    }

    std::string TextOr(const char* name, const char* otherwise) const {
        return Has(name) ? Text(name) : otherwise;
    }

    template <class Value, size_t N>
    Value Choice(const char* name, const std::string& text, const Named<Value> (&choices)[N]) const {
        std::string allowed;
        for (const Named<Value>& choice : choices) {
            if (text == choice.name) {
                return choice.value;
            }
            allowed += allowed.empty() ? choice.name : std::string(", ") + choice.name;
        }
        Refuse("\"" + std::string(name) + "\" is \"" + text + "\" and not one of " + allowed);
    }

    [[noreturn]] void Refuse(const std::string& why) const { throw UsageError(m_where + ": " + why); }

private:
    const Json& m_object;
    std::string m_where;
};

// A member given twice would hide the first one: refused while the text is read.
Json ParseStrictly(const std::string& text, const std::string& path) {
    std::vector<std::vector<std::string>> open;
    const auto check = [&](int, Json::parse_event_t event, const Json& parsed) {
        if (event == Json::parse_event_t::object_start) {
            open.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            open.pop_back();
        } else if (event == Json::parse_event_t::key) {
            const std::string& name = parsed.get_ref<const std::string&>();
            std::vector<std::string>& seen = open.back();
            if (std::find(seen.begin(), seen.end(), name) != seen.end()) {
                throw UsageError(path + ": member \"" + name + "\" is given twice");
            }
            seen.push_back(name);
        }
        return true;
    };
    try {
        return Json::parse(text, check);
    } catch (const Json::exception& error) {
        throw UsageError(path + ": " + error.what());
    }
}

std::string BesideFile(const std::string& file, const std::string& path) {
    const size_t slash = file.rfind('/');
    return path.empty() || path.front() == '/' || slash == std::string::npos
               ? path
               : file.substr(0, slash + 1) + path;
}

EncryptionKey ReadEncryption(const Json& value, const std::string& path) {
    const Members members(value, path + ": \"encryption\"");
    members.AllowKnown("encryption.");
    return ReadKeyFile(BesideFile(path, members.Text("keyFile")));
}

Handle ReadHandle(const Members& members) {
    try {
        return Handle::Parse(members.Text("handle"));
    } catch (const InvalidArgument& error) {
        members.Refuse(error.what());
    }
}

ItemDescription Describe(const std::string& text, const std::string& path) {
    const Json root = ParseStrictly(text, path);
    const Members members(root, path);
    members.AllowKnown();
    ItemDescription item{ReadHandle(members)};
    item.storage = members.Choice("storage", members.Text("storage"), STORAGES);
    item.path = members.Text("path");
    item.backupPath = members.TextOr("backup", "");
    item.defaultPath = members.TextOr("default", "");
    item.saveStrategy = members.Choice("save", members.TextOr("save", "instant"), SAVES);
    item.backupStrategy =
        members.Choice("backupStrategy", members.TextOr("backupStrategy", "instant"), BACKUPS);
    if (members.Has("encryption")) {
        item.encryption = ReadEncryption(members.At("encryption"), path);
    }
    return item;
}

} // namespace

std::string ReadWholeFile(const std::string& path, size_t limit) {
    const Descriptor file(OpenForReading(path));
    return ReadAll(file, path, limit);
}

EncryptionKey ReadKeyFile(const std::string& path) {
    const Descriptor file(OpenForReading(path));
    if ((StatOf(file, path).st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw UsageError(path + ": a key file must be closed to group and others; chmod 600 it");
    }
    std::string text = ReadAll(file, path, KEY_FILE_LIMIT);
    const auto wipe = [&] { explicit_bzero(text.data(), text.size()); };
    try {
        EncryptionKey key = EncryptionKey::FromHex(text);
        wipe();
        return key;
    } catch (const InvalidArgument& error) {
        wipe();
        throw UsageError(path + ": " + error.what());
    }
}

void ReplaceFile(const std::string& path, const std::string& bytes) {
    struct stat status {};
    const bool isThere = stat(path.c_str(), &status) == 0;
    const mode_t mask = umask(0);
    umask(mask);
    std::string beside = path + ".XXXXXX";
    const int fd = mkstemp(beside.data());
    if (fd < 0) {
        ThrowErrno(path);
    }
    const bool isWritten = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
                           fchmod(fd, isThere ? status.st_mode & 07777 : 0666 & ~mask) == 0 &&
                           (!isThere || fchown(fd, status.st_uid, status.st_gid) == 0) && fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    if (!isWritten || rename(beside.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        unlink(beside.c_str());
        errno = reason;
        ThrowErrno(path);
    }
}

const std::vector<ItemMember>& ItemMembers() {
    static const std::vector<ItemMember> members = {
        {"handle", "--handle", "OWNER/NAME", "owner/name or owner/name/index", true},
        {"storage", "--storage", "{json,xml,ini}", "format of the file", true},
        {"path", "--path", "PATH", "the file, as the service finds it", true},
        {"backup", "--backup", "PATH", "its copy, from which it comes back", false},
        {"default", "--default", "PATH", "what it is made from when it is missing", false},
        {"save", "--save", "{instant,delay,timing,none}", "when the file is written, instant if not given",
         false},
        {"backupStrategy", "--backup-strategy", "{instant,delay,timing,none}",
         "when the backup is written, instant if not given", false},
        {"encryption.keyFile", "--key-file", "FILE", "96 hexadecimal digits; beside the item file", false},
    };
    return members;
}

void WriteItemFile(const std::string& path, const std::vector<std::string>& values, bool replaces) {
    struct stat status {};
    if (!replaces && lstat(path.c_str(), &status) == 0) {
        throw UsageError(path + " is there already; --force replaces it");
    }
    nlohmann::ordered_json item = nlohmann::ordered_json::object();
    for (size_t i = 0; i < values.size(); ++i) {
        if (!values[i].empty()) {
            std::string pointer = std::string("/") + ItemMembers()[i].name;
            std::replace(pointer.begin(), pointer.end(), '.', '/');
            item[nlohmann::ordered_json::json_pointer(pointer)] = values[i];
        }
    }
    const std::string text = item.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    Describe(text, path);
    ReplaceFile(path, text);
}

ItemDescription ReadItemFile(const std::string& path) {
    return Describe(ReadWholeFile(path, ITEM_FILE_LIMIT), path);
}

const char* StorageName(ConfigStorageType storage) {
    for (const Named<ConfigStorageType>& known : STORAGES) {
        if (known.value == storage) {
            return known.name;
        }
    }
    return "unknown";
}

} // namespace appcfg::cli
