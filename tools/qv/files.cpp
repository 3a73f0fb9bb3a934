// files.cpp - the input and output files of files.hpp.
#include "files.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "interrupt.hpp"

namespace qvtool {
namespace {

std::string quoted(const std::string &text) {
    return "'" + text + "'";
}

std::string folder_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

unsigned default_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

std::unique_ptr<InputFile> InputFile::open(const std::string &path, std::string &error) {
    const bool standard = path == "-";
    const int fd = standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const std::string name = standard ? "standard input" : path;
    struct stat info {};
    if (fd < 0 || fstat(fd, &info) != 0) {
        error = "cannot read " + quoted(name) + ": " + std::strerror(errno);
        if (fd > STDIN_FILENO) ::close(fd);
        return nullptr;
    }
    if (S_ISDIR(info.st_mode)) {
        error = "cannot read " + quoted(name) + ": it is a folder";
        ::close(fd);
        return nullptr;
    }
    const bool regular = S_ISREG(info.st_mode);
    if (regular) posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    return std::unique_ptr<InputFile>(
        new InputFile(fd, name, regular, regular ? static_cast<std::uint64_t>(info.st_size) : 0));
}

InputFile::~InputFile() {
    if (fd_ > STDIN_FILENO) ::close(fd_);
}

std::ptrdiff_t InputFile::read(char *buffer, std::size_t capacity) {
    for (;;) {
        if (interrupt::requested()) {
            errno = EINTR;
            return -1;
        }
        if (!regular_) {
            pollfd waits[2] = {{fd_, POLLIN, 0}, {interrupt::wake_fd(), POLLIN, 0}};
            const int ready = poll(waits, 2, -1);
            if (ready < 0 && errno != EINTR) return -1;
            if (ready <= 0 || waits[1].revents != 0) continue; // an interrupt is seen above
        }
        const ssize_t got = ::read(fd_, buffer, capacity);
        if (got >= 0 || errno != EINTR) return got;
    }
}

std::unique_ptr<OutputFile> OutputFile::open(const std::string &path, std::string &error) {
    if (path.empty() || path == "-")
        return std::unique_ptr<OutputFile>(new OutputFile(STDOUT_FILENO, "standard output", "", 0));
    struct stat info {};
    const bool exists = stat(path.c_str(), &info) == 0;
    if (exists && S_ISDIR(info.st_mode)) {
        error = "cannot write " + quoted(path) + ": it is a folder";
        return nullptr;
    }
    const std::string folder = folder_of(path);
    const std::size_t slash = path.rfind('/');
    std::string temporary = (folder == "/" ? "" : folder) + "/." +
                            path.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        error = "cannot write " + quoted(path) + ": cannot create a file in " + quoted(folder) +
                ": " + std::strerror(errno);
        return nullptr;
    }
    const unsigned mode = exists ? (info.st_mode & 07777) : default_mode();
    return std::unique_ptr<OutputFile>(new OutputFile(fd, path, temporary, mode));
}

OutputFile::OutputFile(int fd, std::string name, std::string temporary, unsigned mode)
    : fd_(fd), name_(std::move(name)), temporary_(std::move(temporary)), mode_(mode) {
    if (named()) interrupt::set_temporary(temporary_.c_str());
}

OutputFile::~OutputFile() {
    if (!named()) return;
    if (fd_ >= 0) ::close(fd_);
    unlink(temporary_.c_str());
    interrupt::set_temporary(nullptr);
}

bool OutputFile::write_all(const char *data, std::size_t size) {
    while (size > 0) {
        const ssize_t wrote = ::write(fd_, data, size);
        if (wrote < 0) {
            if (errno == EINTR && !interrupt::requested()) continue;
            return false;
        }
        data += wrote;
        size -= static_cast<std::size_t>(wrote);
    }
    return true;
}

bool OutputFile::commit(std::string &error) {
    if (!named()) return true;
    const int fd = fd_;
    fd_ = -1;
    int failure = fchmod(fd, mode_) == 0 ? 0 : errno;
    if (::close(fd) != 0 && failure == 0) failure = errno;
    if (failure == 0 && std::rename(temporary_.c_str(), name_.c_str()) != 0) failure = errno;
    if (failure != 0) {
        error = "cannot write " + quoted(name_) + ": " + std::strerror(failure);
        return false;
    }
    interrupt::set_temporary(nullptr);
    temporary_.clear();
    return true;
}

} // namespace qvtool
