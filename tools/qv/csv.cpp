// csv.cpp - the streaming CSV reader and writer (see csv.hpp for the data model).
#include "csv.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qvtool {

std::ptrdiff_t MemorySource::read(char *buffer, std::size_t capacity) {
    const std::size_t size = std::min({capacity, chunk_, text_.size()});
    std::memcpy(buffer, text_.data(), size);
    text_.remove_prefix(size);
    return static_cast<std::ptrdiff_t>(size);
}

CsvReader::CsvReader(ByteSource &source, char delimiter, std::size_t buffer_size,
                     std::size_t record_limit)
    : source_(source), delimiter_(delimiter),
      record_limit_(std::min(record_limit, std::size_t{1} << 30)),
      buffer_(std::max<std::size_t>(buffer_size, 1)) {
    for (const char c : {delimiter, '\n', '\r'}) special_[static_cast<unsigned char>(c)] = true;
}

CsvReader::Status CsvReader::next() {
    if (failure_ != Failure::None) return Status::Failed;
    if (!bom_checked_ && !skip_byte_order_mark()) return Status::Failed;
    ++record_;
    for (;;) {
        line_ = next_line_;
        if (start_ == filled_) {
            if (at_end_) {
                --record_;
                fields_.clear();
                plain_ = {};
                return Status::End;
            }
            if (!refill()) return Status::Failed;
            continue;
        }
        const Scan scan = scan_record();
        if (scan == Scan::NeedMore) {
            if (!refill()) return Status::Failed;
            continue;
        }
        if (scan == Scan::Malformed) {
            failure_ = Failure::Malformed;
            return Status::Failed;
        }
        const bool blank =
            spans_.size() == 1 && !spans_[0].quoted && spans_[0].begin == spans_[0].end;
        next_line_ = line_ + 1 + lines_inside_quotes();
        start_ = next_;
        if (blank) continue;
        materialise();
        return Status::Row;
    }
}

// Scans the record at start_ into spans_ without changing the buffer, so that a record cut by
// the end of the buffer can be scanned again after a refill. Sets next_ on Record.
CsvReader::Scan CsvReader::scan_record() {
    spans_.clear();
    const char *const base = buffer_.data();
    const char *const end = base + filled_;
    const char *p = base + start_;
    for (;;) {
        if (p < end && *p == '"') {
            const Scan quoted = scan_quoted(p, end);
            if (quoted != Scan::Record) return quoted;
        } else {
            const char *const field = p;
            p = unquoted_end(p, end);
            spans_.push_back({static_cast<std::uint32_t>(field - base),
                              static_cast<std::uint32_t>(p - base), false, false});
        }
        if (p == end) {
            if (!at_end_) return Scan::NeedMore;
            next_ = filled_;
            return Scan::Record;
        }
        if (*p == delimiter_) {
            ++p;
            continue;
        }
        if (*p == '\r' && p + 1 == end && !at_end_) return Scan::NeedMore; // CR, or CR LF?
        const bool crlf = *p == '\r' && p + 1 < end && p[1] == '\n';
        next_ = static_cast<std::size_t>(p - base) + (crlf ? 2 : 1);
        return Scan::Record;
    }
}

// The first delimiter, CR or LF at or after p (end if none): sixteen bytes at a time where
// the processor has SSE2 (every x86-64 does), then byte by byte through the table.
const char *CsvReader::unquoted_end(const char *p, const char *end) const {
#if defined(__SSE2__)
    const __m128i delimiter = _mm_set1_epi8(delimiter_), cr = _mm_set1_epi8('\r'),
                  lf = _mm_set1_epi8('\n');
    for (; end - p >= 16; p += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i hits =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, delimiter),
                         _mm_or_si128(_mm_cmpeq_epi8(bytes, cr), _mm_cmpeq_epi8(bytes, lf)));
        if (const int mask = _mm_movemask_epi8(hits); mask != 0) return p + __builtin_ctz(mask);
    }
#endif
    while (p < end && !special_[static_cast<unsigned char>(*p)]) ++p;
    return p;
}

// A field that starts with a quote at p: on return p is past the closing quote, which must be
// followed by the delimiter, a line end or the end of the input.
CsvReader::Scan CsvReader::scan_quoted(const char *&p, const char *end) {
    const char *const base = buffer_.data();
    const char *q = p + 1;
    bool doubled = false;
    for (;;) {
        q = static_cast<const char *>(std::memchr(q, '"', static_cast<std::size_t>(end - q)));
        if (q == nullptr) {
            if (!at_end_) return Scan::NeedMore;
            error_ = "field " + std::to_string(spans_.size() + 1) +
                     " opens a quote that is never closed";
            return Scan::Malformed;
        }
        if (q + 1 == end && !at_end_) return Scan::NeedMore; // the closing quote or a doubled one?
        if (q + 1 == end || q[1] != '"') break;
        doubled = true;
        q += 2;
    }
    spans_.push_back({static_cast<std::uint32_t>(p + 1 - base),
                      static_cast<std::uint32_t>(q - base), true, doubled});
    p = q + 1;
    if (p < end && *p != delimiter_ && *p != '\n' && *p != '\r') {
        error_ = "field " + std::to_string(spans_.size()) + " has text after its closing quote";
        return Scan::Malformed;
    }
    return Scan::Record;
}

// Moves the unfinished record to the front and reads more after it: once, or, when the record
// fills half the buffer, into a buffer twice the size until it is full, so that a long record
// is scanned again only a logarithmic number of times.
bool CsvReader::refill() {
    const std::size_t keep = filled_ - start_;
    if (start_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + start_, keep);
        consumed_ += start_;
        start_ = 0;
        filled_ = keep;
    }
    const bool grow = keep * 2 >= buffer_.size();
    if (grow) {
        if (keep > record_limit_)
            return fail(Failure::Malformed, "a record longer than " +
                                                std::to_string(record_limit_ >> 20) +
                                                " MiB (a quote left open?)");
        buffer_.resize(std::min(buffer_.size() * 2, record_limit_ * 2 + 2));
    }
    do {
        const std::ptrdiff_t got = source_.read(buffer_.data() + filled_, buffer_.size() - filled_);
        if (got < 0)
            return errno == EINTR ? fail(Failure::Interrupted, "interrupted")
                                  : fail(Failure::Read, std::strerror(errno));
        if (got == 0) {
            at_end_ = true;
            break;
        }
        filled_ += static_cast<std::size_t>(got);
    } while (grow && filled_ < buffer_.size());
    return true;
}

bool CsvReader::skip_byte_order_mark() {
    bom_checked_ = true;
    while (filled_ < 3 && !at_end_)
        if (!refill()) return false;
    if (filled_ >= 3 && std::memcmp(buffer_.data(), "\xEF\xBB\xBF", 3) == 0) start_ = 3;
    return true;
}

// Turns the spans of the record just scanned into fields, unescaping doubled quotes in place.
void CsvReader::materialise() {
    fields_.resize(spans_.size());
    char *const base = buffer_.data();
    const std::string_view record(base + spans_.front().begin,
                                  spans_.back().end - spans_.front().begin);
    const bool quoted =
        std::any_of(spans_.begin(), spans_.end(), [](const Span &span) { return span.quoted; });
    plain_ = quoted || record.empty() || record.find('"') != std::string_view::npos
                 ? std::string_view()
                 : record;
    for (std::size_t i = 0; i < spans_.size(); ++i) {
        char *const begin = base + spans_[i].begin;
        const char *const end = base + spans_[i].end;
        char *write = begin;
        if (spans_[i].doubled) {
            for (const char *read = begin; read < end; ++read) {
                *write++ = *read;
                if (*read == '"') ++read; // only doubled quotes occur inside
            }
        } else {
            write = begin + (end - begin);
        }
        fields_[i] = std::string_view(begin, static_cast<std::size_t>(write - begin));
    }
}

std::int64_t CsvReader::lines_inside_quotes() const {
    std::int64_t lines = 0;
    for (const Span &span : spans_)
        if (span.quoted)
            lines += std::count(buffer_.data() + span.begin, buffer_.data() + span.end, '\n');
    return lines;
}

bool CsvReader::fail(Failure failure, std::string text) {
    failure_ = failure;
    error_ = std::move(text);
    return false;
}

CsvWriter::CsvWriter(ByteSink &sink, char delimiter, std::size_t buffer_size)
    : sink_(sink), delimiter_(delimiter), threshold_(std::max<std::size_t>(buffer_size, 1)) {
    for (const char c : {delimiter, '"', '\n', '\r'})
        special_[static_cast<unsigned char>(c)] = true;
    buffer_.reserve(threshold_ + 1024);
}

bool CsvWriter::write_row(std::span<const std::string_view> fields) {
    if (failed_) return false;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) buffer_ += delimiter_;
        append_field(fields[i], fields.size() == 1);
    }
    buffer_ += '\n';
    return buffer_.size() < threshold_ || flush();
}

bool CsvWriter::write_row(std::string_view plain, std::span<const std::string_view> more) {
    if (failed_) return false;
    buffer_.append(plain);
    for (const std::string_view field : more) {
        buffer_ += delimiter_;
        append_field(field, false);
    }
    buffer_ += '\n';
    return buffer_.size() < threshold_ || flush();
}

bool CsvWriter::flush() {
    if (failed_) return false;
    if (!buffer_.empty() && !sink_.write_all(buffer_.data(), buffer_.size())) {
        failed_ = true;
        return false;
    }
    buffer_.clear();
    return true;
}

bool CsvWriter::needs_quotes(std::string_view field) const {
    return std::any_of(field.begin(), field.end(),
                       [this](char c) { return special_[static_cast<unsigned char>(c)]; });
}

void CsvWriter::append_field(std::string_view field, bool alone) {
    if (!needs_quotes(field) && !(alone && field.empty())) {
        buffer_.append(field);
        return;
    }
    buffer_ += '"';
    for (std::size_t quote; (quote = field.find('"')) != std::string_view::npos;) {
        buffer_.append(field.substr(0, quote + 1));
        buffer_ += '"';
        field.remove_prefix(quote + 1);
    }
    buffer_.append(field);
    buffer_ += '"';
}

} // namespace qvtool
