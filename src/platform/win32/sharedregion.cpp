#include "platform/sharedregion.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>

#include "platform/win32/byterange.h"
#include "platform/win32/handle.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

// A named memory is a file in the user's folder for such things, mapped by all that have it open. Who that is is told
// by locks on bytes behind its end, which the system drops when a process ends: one byte is the gate, each opener has
// one of its own. So behind the gate, "nobody else has a lock" is a fact: an opener that finds it so makes the memory
// afresh, and a closer removes the file.

namespace Platform {

namespace {

constexpr std::size_t LongestName = 198;
constexpr std::size_t LongestFileName = 255;
constexpr auto GatePatience = std::chrono::seconds(10);
constexpr std::int64_t Gate = std::int64_t{1} << 60;
constexpr DWORD Nap = 10; // milliseconds, between two looks at a word

// Two names that differ in upper and lower case alone are two, so letters are told as they are.
std::string FileName(std::string_view name) {
    static const char s_digits[] = "0123456789abcdef";
    std::string file;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
        if (plain) {
            file += c;
        } else if (c >= 'A' && c <= 'Z') {
            file += '^';
            file += static_cast<char>(c - 'A' + 'a');
        } else {
            file += '%';
            file += s_digits[byte >> 4];
            file += s_digits[byte & 15];
        }
    }
    return file;
}

HANDLE SystemHandle(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

bool LockGate(HANDLE file) {
    const auto deadline = std::chrono::steady_clock::now() + GatePatience;
    auto pause = std::chrono::microseconds(100);
    while (!LockBytes(file, Gate, 1, false)) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(2000));
    }
    return true;
}

bool IsMarkedByOthers(HANDLE file, std::int64_t first, std::int64_t end, std::int64_t own) {
    if (own < first || own >= end)
        return AreLocked(file, Gate + first, end - first);
    return AreLocked(file, Gate + first, own - first) || AreLocked(file, Gate + own + 1, end - own - 1);
}

// The user's own folder for what does not last; empty when there is none.
std::string Directory() {
    std::wstring path(MAX_PATH + 2, L'\0');
    const DWORD length = GetTempPathW(static_cast<DWORD>(path.size()), path.data());
    if (length == 0 || length >= path.size())
        return std::string();
    path.resize(length);
    path += L"motoolkit-names";
    if (CreateDirectoryW(path.c_str(), nullptr) == 0 && GetLastError() != ERROR_ALREADY_EXISTS)
        return std::string();
    return NarrowPath(path);
}

bool IsGone(HANDLE file) {
    FILE_STANDARD_INFO information = {};
    return GetFileInformationByHandleEx(file, FileStandardInfo, &information, sizeof(information)) == 0 ||
           information.DeletePending != FALSE || information.NumberOfLinks == 0;
}

HANDLE OpenIn(const std::string& path, bool creates) {
    return CreateFileW(WidePath(path.c_str()).Get(), GENERIC_READ | GENERIC_WRITE | DELETE, ShareAll, nullptr,
                       creates ? OPEN_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_TEMPORARY, nullptr);
}

// Found by all that have the word of that place: waiters and those who wake them.
std::array<char, 64> EventName(const std::string& path, std::ptrdiff_t offset) {
    std::array<char, 64> name = {};
    std::snprintf(name.data(), name.size(), "Local\\motoolkit-%zu-%td", std::hash<std::string>()(path), offset);
    return name;
}

} // namespace

SharedRegion::Entry SharedRegion::Enter(std::string_view name, std::string_view group, std::string& whyDenied) {
    const std::string file = FileName(name);
    if (name.empty() || name.size() > LongestName || file.size() > LongestFileName)
        return Entry::Failed;
    if (!group.empty()) {
        whyDenied = "groups have no names of their own on this system";
        return Entry::Denied;
    }
    for (int attempt = 0; attempt < 10000; ++attempt) {
        m_directory = Directory();
        if (m_directory.empty()) {
            whyDenied = "there is no folder for temporary files";
            return Entry::Denied;
        }
        m_path = m_directory + '\\' + file;
        Handle opened(OpenIn(m_path, true));
        if (!opened) {
            SwitchToThread(); // it is just being removed
            continue;
        }
        if (!LockGate(opened.Get()))
            return Entry::Failed;
        if (!IsGone(opened.Get())) {
            m_handle = reinterpret_cast<std::intptr_t>(opened.Release());
            return Entry::Entered;
        }
    }
    return Entry::Failed;
}

SharedRegion::Entry SharedRegion::EnterExisting(std::string_view name, std::string_view group, std::string& whyDenied) {
    if (!group.empty()) {
        whyDenied = "groups have no names of their own on this system";
        return Entry::Denied;
    }
    m_path = Directory() + '\\' + FileName(name);
    Handle opened(OpenIn(m_path, false));
    if (!opened || !LockGate(opened.Get()))
        return Entry::Failed;
    m_handle = reinterpret_cast<std::intptr_t>(opened.Release());
    return Entry::Entered;
}

void SharedRegion::Leave() {
    UnlockBytes(SystemHandle(m_handle), Gate, 1);
}

bool SharedRegion::EnterAgain() {
    return LockGate(SystemHandle(m_handle));
}

void SharedRegion::Close() {
    Unmap();
    if (m_handle != -1)
        CloseHandle(SystemHandle(m_handle));
    m_handle = -1;
    m_mark = 0;
}

void SharedRegion::Unmap() {
    if (m_view != nullptr)
        UnmapViewOfFile(m_view);
    m_view = nullptr;
}

bool SharedRegion::HasOtherMarks() const {
    return IsMarkedByOthers(SystemHandle(m_handle), 1, std::int64_t{LastMark} + 1, m_mark);
}

// Cut to nothing and grown again, all its bytes are zero.
bool SharedRegion::Clear(std::size_t length) {
    FILE_END_OF_FILE_INFO end = {};
    if (SetFileInformationByHandle(SystemHandle(m_handle), FileEndOfFileInfo, &end, sizeof(end)) == 0)
        return false;
    end.EndOfFile.QuadPart = static_cast<std::int64_t>(length);
    return SetFileInformationByHandle(SystemHandle(m_handle), FileEndOfFileInfo, &end, sizeof(end)) != 0;
}

bool SharedRegion::Reserve(std::size_t, std::size_t) {
    return true; // a file here has the room that its length says
}

void* SharedRegion::Map(std::size_t length) {
    LARGE_INTEGER size = {};
    if (GetFileSizeEx(SystemHandle(m_handle), &size) == 0 || size.QuadPart != static_cast<std::int64_t>(length))
        return nullptr;
    const Handle mapping(CreateFileMappingW(SystemHandle(m_handle), nullptr, PAGE_READWRITE, 0, 0, nullptr));
    m_view = mapping ? MapViewOfFile(mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, length) : nullptr;
    m_length = length;
    return m_view;
}

void SharedRegion::RemoveIfLast() {
    if (HasOtherMarks() || IsGone(SystemHandle(m_handle)))
        return;
    Unmap(); // what is mapped cannot be removed
    DeleteFileW(WidePath(m_path.c_str()).Get());
}

SharedRegion::Marking SharedRegion::TakeMark(std::uint32_t mark) {
    if (LockBytes(SystemHandle(m_handle), Gate + mark, 1, false)) {
        m_mark = mark;
        return Marking::Taken;
    }
    return GetLastError() == ERROR_LOCK_VIOLATION || GetLastError() == ERROR_IO_PENDING ? Marking::Busy
                                                                                        : Marking::Failed;
}

bool SharedRegion::IsMarkedElsewhere(std::uint32_t mark) const {
    return mark != m_mark && AreLocked(SystemHandle(m_handle), Gate + mark, 1);
}

std::map<std::uint32_t, std::uint32_t> SharedRegion::Processes() const {
    return {}; // the system does not tell whose a lock is
}

bool SharedRegion::OpenAnewInChild() {
    return false;
}

bool SharedRegion::Sleep(const void* word, std::uint32_t expected, std::chrono::nanoseconds time) const {
    const auto* const shared = static_cast<const std::atomic<std::uint32_t>*>(word);
    const auto offset = static_cast<const char*>(word) - static_cast<const char*>(m_view);
    const Handle event(CreateEventA(nullptr, FALSE, FALSE, EventName(m_path, offset).data()));
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(time, std::chrono::nanoseconds(0))).count();
    const bool isLast = left <= Nap;
    if (shared->load() != expected)
        return true;
    const DWORD nap = isLast ? static_cast<DWORD>(left) : Nap;
    const DWORD result = event ? WaitForSingleObject(event.Get(), nap) : (::Sleep(nap), WAIT_TIMEOUT);
    return result == WAIT_OBJECT_0 || !isLast || shared->load() != expected;
}

void SharedRegion::WakeOne(const void* word) const {
    const auto offset = static_cast<const char*>(word) - static_cast<const char*>(m_view);
    const Handle event(OpenEventA(EVENT_MODIFY_STATE, FALSE, EventName(m_path, offset).data()));
    if (event)
        SetEvent(event.Get());
}

void SharedRegion::WakeAll(const void* word) const {
    WakeOne(word); // the others look again when their nap is over
}

} // namespace Platform
