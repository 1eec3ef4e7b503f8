#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace Platform {

/// What SharedMemory asks of the system: memory under a name, a gate that one opener at a time goes through, and
/// numbered marks that tell who is there. A mark and a place in the gate are lost with the object, or when its process
/// ends in whatever way. Whom the memory belongs to, and what names there are, is told there.
///
/// One thread at a time opens or closes an object; asking for marks, sleeping and waking is for any thread in between.
class MOPLATFORM_API SharedRegion {
public:
    static constexpr std::uint32_t LastMark = 0x7FFFFFFE; ///< they begin with 1

    enum class Entry { Failed, Denied, Entered };
    enum class Marking { Failed, Busy, Taken };

    SharedRegion() = default;
    ~SharedRegion() { Close(); }
    SharedRegion(const SharedRegion&) = delete;
    SharedRegion& operator=(const SharedRegion&) = delete;

    /// Opens the memory, makes it when it is missing, and goes through its gate: waits for others there, for seconds at
    /// most. Denied with the reason.
    Entry Enter(std::string_view name, std::string_view group, std::string& whyDenied);
    /// The same for memory that is there: makes nothing.
    Entry EnterExisting(std::string_view name, std::string_view group, std::string& whyDenied);
    void Leave();      ///< the gate is free again
    bool EnterAgain(); ///< false when others keep it for too long
    void Close();      ///< also gives the marks back

    // Behind the gate.

    bool HasOtherMarks() const;                         ///< also when the system does not tell
    bool Clear(std::size_t length);                     ///< gives it so many bytes, all of them zero
    bool Reserve(std::size_t offset, std::size_t size); ///< makes sure that there is room for these; also outside
    void* Map(std::size_t length);                      ///< null on failure, or when it has another length
    void RemoveIfLast();                                ///< when nobody else has a mark

    Marking TakeMark(std::uint32_t mark);
    bool IsMarkedElsewhere(std::uint32_t mark) const; ///< by another object; also when the system does not tell

    /// The processes that have the marks, as far as the system tells; those of other users it may not.
    std::map<std::uint32_t, std::uint32_t> Processes() const;

    /// In a child that shares its parent's: an own one in its place, mapped where that is, without any mark. False, and
    /// closed, on failure.
    bool OpenAnewInChild();

    bool Sleep(const void* word, std::uint32_t expected, std::chrono::nanoseconds time) const; ///< as SharedMemory's
    void WakeOne(const void* word) const;
    void WakeAll(const void* word) const;

private:
    int File() const { return static_cast<int>(m_handle); }
    void Unmap();

    std::intptr_t m_handle = -1;
    void* m_view = nullptr;
    std::size_t m_length = 0;
    [[maybe_unused]] std::uint32_t m_mark = 0; ///< where a lock is in its owner's way
    std::string m_directory;
    std::string m_path;
};

} // namespace Platform
