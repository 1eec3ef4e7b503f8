#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/forkhook.h"

namespace Platform {

/// Memory that processes share under a name, with the life of a kernel object: it comes into being with its
/// first opener and is gone with the last, also when that one is killed. Whoever opens a name that nobody has
/// open gets fresh memory, whatever the last user left in it.
///
/// It belongs to the user whose process makes it; processes of other users can neither open nor see it. Names
/// are bytes without any meaning, at most 200 of them (fewer when some cannot stand in a file name): longer
/// ones fail.
///
/// Each open object is an opener of its own, known by a number that nobody else gets while the memory lives.
/// Others can ask whether an opener is still there, and leave a mark to be found when it is not.
///
/// A child made by fork is attached as its parent is, as an opener of its own and without a mark. If the
/// system refuses that, its copy is closed.
///
/// One thread at a time opens or closes an object; the rest may be called from any thread in between.
class SharedMemory {
public:
    using Opener = std::uint32_t;
    static constexpr Opener Nobody = 0;

    enum class Kind : std::uint32_t { Memory = 1, Semaphore = 2 }; ///< of one name, all openers want one kind
    enum class Opening { Failed, Created, Opened };

    /// `partOf`: when not 0, the life (see Life) of the memory that this one is a part of. A system ends the
    /// openings of a killed process one after the other; memory whose whole is already in its next life
    /// counts as fresh here even if its own former opener is still on its way out.
    struct Options {
        std::size_t size; ///< in bytes; all openers of one name want the same
        Kind kind = Kind::Memory;
        const void* content = nullptr; ///< `size` bytes that fresh memory holds; null: zeros
        bool marks = false;            ///< whether openers can be marked; if so, at most MaxMarks are there at once
        std::uint64_t partOf = 0;
    };
    static constexpr std::size_t MaxMarks = 32768;

    SharedMemory() = default;
    ~SharedMemory() { Close(); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    /// Closes what was open. While other openers are busy opening or closing this name it waits for them, for
    /// seconds at most.
    Opening Open(std::string_view name, const Options& options);
    void Close();
    bool IsOpen() const { return m_view != nullptr; }

    void* View() const { return m_view; } ///< `size` bytes, at the start of a page
    Opener Self() const { return m_self; }
    std::uint64_t Life() const; ///< a number that no other memory has had, not even of this name

    /// Whether the opener has neither closed the memory nor ended. A question to the system.
    bool IsThere(Opener opener) const;

    void SetMark(bool marked) const;

    struct MarkCount {
        std::size_t there; ///< marked openers
        std::size_t gone;  ///< openers that were marked when they ended
    };
    /// Asks the system about each marked opener. With `forget`, those that are gone lose their marks.
    MarkCount CountMarks(bool forget) const;

private:
    struct Header;

    bool Map(int descriptor, const Options& options, Opening& opening);
    bool BecomeOpener(int descriptor);
    bool TakeSlot(int descriptor);
    void AfterForkInChild();
    void RemoveIfLast(int descriptor) const;
    void Forget();
    std::atomic<std::uint64_t>* Slots() const;
    std::uint32_t SlotsUsed() const;

    void* m_view = nullptr;
    Header* m_header = nullptr;
    std::size_t m_length = 0; ///< of the mapping
    bool m_marks = false;
    std::atomic<std::uint64_t>* m_slot = nullptr;
    Opener m_self = Nobody;
    int m_descriptor = -1;
    std::string m_directory;
    std::string m_path;
    ForkHook m_forkHook = {[](void* self) { static_cast<SharedMemory*>(self)->AfterForkInChild(); }, this};
};

} // namespace Platform
