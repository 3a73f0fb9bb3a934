// files.hpp - the input and output of a run.
//
// An input is a file named on the command line or standard input ("-"); it knows whether it
// is a regular file and its size, for the progress bar. Reading a pipe or terminal waits in
// poll() on the input and the interrupt pipe, so Ctrl-C ends a wait for more input at once.
//
// An output is standard output, or a named file written as a temporary file in the same
// folder (".NAME.XXXXXX", so the rename is atomic) that commit() renames over the name. Until
// then the name is untouched: a run that fails or is interrupted removes the temporary file
// (the destructor does, and a second Ctrl-C does from the signal handler), so it never leaves
// a half-written file. The file gets the mode of the file it replaces, or 0666 less the
// umask. The data is not synced to disk before the rename; the guarantee is against failures
// of the run, not of the machine.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "csv.hpp"

namespace qvtool {

class InputFile : public ByteSource {
  public:
    // Null with `error` set ("cannot read 'x.csv': No such file or directory").
    static std::unique_ptr<InputFile> open(const std::string &path, std::string &error);
    ~InputFile() override;
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    std::ptrdiff_t read(char *buffer, std::size_t capacity) override;
    bool regular() const { return regular_; }
    std::uint64_t size() const { return size_; }
    // The path, or "standard input".
    const std::string &name() const { return name_; }

  private:
    InputFile(int fd, std::string name, bool regular, std::uint64_t size)
        : fd_(fd), name_(std::move(name)), regular_(regular), size_(size) {}
    int fd_;
    std::string name_;
    bool regular_;
    std::uint64_t size_;
};

class OutputFile : public ByteSink {
  public:
    // "-" or "" is standard output. Null with `error` set when no temporary file can be
    // created beside `path`.
    static std::unique_ptr<OutputFile> open(const std::string &path, std::string &error);
    ~OutputFile() override;
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    bool write_all(const char *data, std::size_t size) override;
    // Closes the file and renames it over its name; false with `error` set when that failed
    // (the temporary file is then removed by the destructor).
    bool commit(std::string &error);
    // The path, or "standard output".
    const std::string &name() const { return name_; }
    bool named() const { return !temporary_.empty(); }

  private:
    OutputFile(int fd, std::string name, std::string temporary, unsigned mode);
    int fd_;
    std::string name_, temporary_;
    unsigned mode_;
};

} // namespace qvtool
