// msgclass.cpp - the message classes: parameters, messages and their texts from the
// catalogue, the registry of message sets, and the C calls that build and free messages.
//
// The registry maps handles to sets, each a vector of owned message copies. Handles count
// up from 1, skip 0 when they wrap and skip any still in use. Memory running out inside
// the standard containers is turned into a raise (ZRK_MESSAGE_FAILURE for a message,
// ZRK_MESSAGE_SET_FAILURE for a set) once the failed operation has been left.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <new>
#include <utility>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "messages/catalogue.hpp"
#include "qv/msgclass.h"

// ---- PWParam ----

PWParam::PWParam(const char *text) : text_(text != nullptr ? text : "<NULL>") {}
PWParam::PWParam(std::string_view text) : text_(text) {}
PWParam::PWParam(const std::string &text) : text_(text) {}
PWParam::PWParam(char character) : text_(1, character) {}

std::string PWParam::Text() const {
    switch (kind_) {
        case Kind::Signed: return std::to_string(signed_);
        case Kind::Unsigned: return std::to_string(unsigned_);
        case Kind::Text: break;
    }
    return text_;
}

// ---- PWMessageBase / PWMessage ----

PWMessageBase::~PWMessageBase() = default;

PWSeverity PWMessageBase::ToCatalogueSeverity(int32_t library_severity) {
    switch (library_severity) {
        case MESSAGE_SEVERITY_DEBUG: return PWSeverity::Debug;
        case MESSAGE_SEVERITY_INFORMATION: return PWSeverity::Information;
        case MESSAGE_SEVERITY_WARNING: return PWSeverity::Warning;
        case MESSAGE_SEVERITY_FATAL: return PWSeverity::Fatal;
        default: return PWSeverity::Error;
    }
}

int32_t PWMessageBase::ToLibrarySeverity(PWSeverity severity) {
    switch (severity) {
        case PWSeverity::Debug: return MESSAGE_SEVERITY_DEBUG;
        case PWSeverity::Information: return MESSAGE_SEVERITY_INFORMATION;
        case PWSeverity::Warning: return MESSAGE_SEVERITY_WARNING;
        case PWSeverity::Fatal: return MESSAGE_SEVERITY_FATAL;
        case PWSeverity::Error: break;
    }
    return MESSAGE_SEVERITY_ERROR;
}

namespace {
PWSeverity catalogued_severity(uint32_t number) {
    const qv::CatalogueEntry *entry = qv::find_catalogue_entry(number);
    return entry != nullptr ? entry->severity : PWSeverity::Error;
}
} // namespace

PWMessage::PWMessage(uint32_t number) : PWMessageBase(number, catalogued_severity(number)) {}

PWMessage &PWMessage::operator<<(const PWParam &parameter) {
    parameters_.push_back(parameter);
    return *this;
}

const char *PWMessage::ClassName() const {
    return "PWMessage";
}

std::unique_ptr<PWMessageBase> PWMessage::Clone() const {
    return std::make_unique<PWMessage>(*this);
}

std::string PWMessage::Text() const {
    return qv::message_text(Number(), parameters_);
}

// ---- PWMsgSet ----

struct PWMsgSet::Registry {
    using Set = qv::Vector<std::unique_ptr<PWMessageBase>>;
    qv::Map<uint32_t, Set> sets;
    uint32_t next_handle = 1;

    const Set *find(uint32_t handle) const {
        auto found = sets.find(handle);
        return found != sets.end() ? &found->second : nullptr;
    }
    Set *find(uint32_t handle) {
        auto found = sets.find(handle);
        return found != sets.end() ? &found->second : nullptr;
    }
    // The set of `handle`, made (and its handle stored) when there is none.
    Set &find_or_make(uint32_t &handle) {
        if (Set *set = find(handle)) return *set;
        while (next_handle == 0 || sets.contains(next_handle)) ++next_handle;
        handle = next_handle++;
        return sets[handle];
    }
};

PWMsgSet::PWMsgSet() : registry_(std::make_unique<Registry>()) {}
PWMsgSet::~PWMsgSet() = default;

PWMsgSet &PWMsgSet::Instance() {
    static PWMsgSet instance;
    return instance;
}

bool PWMsgSet::IsSet(uint32_t handle) const {
    return registry_->find(handle) != nullptr;
}

uint32_t PWMsgSet::Count(uint32_t handle) const {
    const Registry::Set *set = registry_->find(handle);
    if (set == nullptr) {
        QV_RAISE(ZRK_MESSAGE_SET_FAILURE);
        return 0;
    }
    return static_cast<uint32_t>(set->size());
}

int32_t PWMsgSet::WorstSeverity(uint32_t handle) const {
    const Registry::Set *set = registry_->find(handle);
    if (set == nullptr) {
        QV_RAISE(ZRK_MESSAGE_SET_FAILURE);
        return 0;
    }
    int32_t worst = 0;
    for (const auto &message : *set) worst = std::max(worst, message->LibrarySeverity());
    return worst;
}

PWMessageBase *PWMsgSet::Message(uint32_t handle, uint32_t n) const {
    const Registry::Set *set = registry_->find(handle);
    if (set == nullptr || n >= set->size()) {
        QV_RAISE(ZRK_MESSAGE_SET_FAILURE);
        return nullptr;
    }
    return (*set)[n].get();
}

void PWMsgSet::Add(uint32_t &handle, const PWMessageBase &message) {
    QV_C_ENTRY_RAISING(ZRK_MESSAGE_SET_FAILURE, [&] {
        std::unique_ptr<PWMessageBase> copy = message.Clone();
        registry_->find_or_make(handle).push_back(std::move(copy));
    });
}

void PWMsgSet::Transfer(uint32_t from, uint32_t &to) {
    if (registry_->find(from) == nullptr) {
        QV_RAISE(ZRK_MESSAGE_SET_FAILURE);
        return;
    }
    if (from == to) return;
    QV_C_ENTRY_RAISING(ZRK_MESSAGE_SET_FAILURE, [&] {
        Registry::Set &target = registry_->find_or_make(to);
        Registry::Set &source = *registry_->find(from);
        target.reserve(target.size() + source.size());
        std::move(source.begin(), source.end(), std::back_inserter(target));
        source.clear();
    });
}

void PWMsgSet::Clear(uint32_t handle) {
    registry_->sets.erase(handle);
}

void PWMsgSet::ClearAll() {
    registry_->sets.clear();
}

std::size_t PWMsgSet::SetCount() const {
    return registry_->sets.size();
}

// ---- building messages from C ----

extern "C" {

QV_API PWMessage *NewMessage_L(uint32_t number, int32_t severity) {
    auto *message = new (std::nothrow) PWMessage(number, severity);
    if (message == nullptr) QV_RAISE(ZRK_MESSAGE_FAILURE);
    return message;
}

QV_API void MessageAddText_L(PWMessage *message, const char *text) {
    if (message == nullptr) return;
    QV_C_ENTRY_RAISING(ZRK_MESSAGE_FAILURE, [&] { *message << text; });
}

QV_API void MessageAddSigned_L(PWMessage *message, int64_t value) {
    if (message == nullptr) return;
    QV_C_ENTRY_RAISING(ZRK_MESSAGE_FAILURE, [&] { *message << value; });
}

QV_API void MessageAddUnsigned_L(PWMessage *message, uint64_t value) {
    if (message == nullptr) return;
    QV_C_ENTRY_RAISING(ZRK_MESSAGE_FAILURE, [&] { *message << value; });
}

QV_API void FreeMessage_L(PWMessage *message) {
    delete message;
}

QV_API uint32_t MessageNumber_L(const PWMessage *message) {
    return message != nullptr ? message->Number() : 0;
}

QV_API int32_t MessageSeverity_L(const PWMessage *message) {
    return message != nullptr ? message->LibrarySeverity() : 0;
}

} // extern "C"
