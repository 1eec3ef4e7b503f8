#include "stream/qzfile.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <system_error>

#include "base/pathtext.h"
#include "platform/file.h"
#include "platform/filereplacement.h"
#include "platform/module.h"

namespace Qzc {

namespace {

KeldMBString ErrorText(int error) {
    KeldMBString text;
    if (error != 0)
        TryMemory([&] { text = KeldMBString(std::generic_category().message(error)); });
    return text;
}

constexpr int InvalidName = static_cast<int>(std::errc::invalid_argument);

// The system ends a path at its first zero byte, and would take another file than the one that was named.
bool IsCut(const KeldMBString& path) {
    return path.Find('\0') >= 0;
}

Platform::FileAccess ToPlatform(QzFile::Access access) {
    switch (access) {
    case QzFile::Access::Write: return Platform::FileAccess::Write;
    case QzFile::Access::ReadWrite: return Platform::FileAccess::ReadWrite;
    default: return Platform::FileAccess::Read;
    }
}

} // namespace

QzFile::~QzFile() {
    Close();
}

bool QzFile::Report(int error) {
    if (error != 0)
        m_error = error;
    return error == 0;
}

bool QzFile::Open(const KeldMBString& path, Access access) {
    Close();
    if (IsCut(path))
        return Report(InvalidName);
    int error = ENOMEM; // where names are handed over in another charset
    TryMemory([&] { m_handle = Platform::OpenFile(ToNativePath(path).Cstr(), ToPlatform(access), error); });
    return Report(error);
}

bool QzFile::Close() {
    if (!IsOpen())
        return true;
    int error = 0;
    Platform::CloseFile(m_handle, error);
    m_handle = Platform::NoFile;
    return Report(error);
}

std::int64_t QzFile::Read(void* buffer, std::int64_t count) {
    int error = 0;
    const std::int64_t done = Platform::ReadFile(m_handle, buffer, count, error);
    Report(error);
    return done;
}

std::int64_t QzFile::Write(const void* buffer, std::int64_t count) {
    int error = 0;
    const std::int64_t done = Platform::WriteFile(m_handle, buffer, count, error);
    Report(error);
    return done;
}

bool QzFile::Seek(std::int64_t position) {
    int error = 0;
    Platform::SeekFile(m_handle, position, error);
    return Report(error);
}

std::int64_t QzFile::GetLength() const {
    int error = 0;
    return Platform::FileLength(m_handle, error);
}

bool QzFile::Truncate(std::int64_t length) {
    int error = 0;
    Platform::TruncateFile(m_handle, length, error);
    return Report(error);
}

bool QzFile::IsAt(const KeldMBString& path) const {
    return path.Find('\0') < 0 && Platform::FileIsAt(m_handle, ToNativePath(path).Cstr());
}

bool QzFile::Sync() {
    int error = 0;
    Platform::SyncFile(m_handle, error);
    return Report(error);
}

KeldMBString QzFile::GetError() const {
    return ErrorText(m_error);
}

bool QzFile::ReadAll(KeldMBString& text) {
    constexpr int TooLarge = static_cast<int>(std::errc::file_too_large);
    const std::int64_t length = GetLength();
    if (length > KeldMBString::MaxLength)
        return Report(TooLarge);
    if (length < 0 || !Seek(0))
        return false;
    std::string bytes;
    int error = 0;
    const bool fits = TryMemory([&] {
        // The length is where to start: some files do not tell theirs, and others grow while they are read. A byte more
        // than that is asked for, so that most are read at once and seen to end.
        std::size_t done = 0;
        std::size_t room = static_cast<std::size_t>(length) + 1;
        while (error == 0 && done == bytes.size()) {
            if (done > KeldMBString::MaxLength) {
                error = TooLarge;
                return;
            }
            bytes.resize(room);
            done += static_cast<std::size_t>(Platform::ReadFile(m_handle, bytes.data() + done,
                                                                static_cast<std::int64_t>(bytes.size() - done), error));
            constexpr std::size_t Most = std::size_t{KeldMBString::MaxLength} + 1;
            room = std::min(Most, std::max(2 * room, std::size_t{4096}));
        }
        bytes.resize(done);
    });
    if (!Report(fits ? error : static_cast<int>(std::errc::not_enough_memory)))
        return false;
    text = KeldMBString(std::move(bytes));
    return true;
}

bool QzFile::ReplaceAll(const KeldMBString& path, const KeldMBString& text, KeldMBString& error) {
    return ReplaceAll(
        path, [&](QzFile& file) { return file.Write(text.Cstr(), text.GetLength()) == text.GetLength(); }, error);
}

bool QzFile::ReplaceAll(const KeldMBString& path, const std::function<bool(QzFile&)>& write, KeldMBString& error) {
    Platform::Replacement replacement;
    int failure = 0;
    if (IsCut(path)) {
        error = ErrorText(InvalidName);
        return false;
    }
    bool replaced = false;
    if (!TryMemory([&] { replaced = Platform::OpenReplacement(ToNativePath(path).Cstr(), replacement, failure); })) {
        Platform::AbandonReplacement(replacement);
        error = ErrorText(static_cast<int>(std::errc::not_enough_memory));
        return false;
    }
    if (replaced) {
        QzFile file;
        file.m_handle = replacement.file;
        replaced = write(file);
        failure = file.m_error;
        file.m_handle = Platform::NoFile; // it is the replacement's to close
        if (replaced)
            replaced = Platform::CommitReplacement(replacement, failure);
        else
            Platform::AbandonReplacement(replacement);
    }
    error = ErrorText(failure);
    return replaced;
}

bool QzFile::IsExist(const KeldMBString& path) {
    return !IsCut(path) && Platform::FileExists(ToNativePath(path).Cstr());
}

void QzFile::Remove(const KeldMBString& path) {
    if (!IsCut(path))
        Platform::RemoveFile(ToNativePath(path).Cstr());
}

KeldMBString QzFile::GetModulePath(const char* moduleName) {
    KeldMBString directory;
    TryMemory([&] {
        const std::string path = moduleName != nullptr ? Platform::ModulePath(moduleName) : std::string();
        directory = KeldMBString(path.substr(0, PathText(KELDCharset::Current).NameStart(path)));
    });
    return directory;
}

KeldMBString QzFile::GetAbsolutePath(const KeldMBString& directory, const KeldMBString& path) {
    KeldMBString absolute;
    const bool whole = TryCopies<KeldMBString>([&] {
        const PathText text(path.GetCharset());
        const std::string base = PathText(directory.GetCharset()).ToNative(directory.View());
        absolute = KeldMBString(text.Normal(text.Join(base, text.ToNative(path.View()))));
    });
    return whole ? absolute : KeldMBString();
}

void QzFile::SplitPath(const KeldMBString& path, KeldMBString& directory, KeldMBString& name, KeldMBString& extension) {
    const KeldMBString native = ToNativePath(path);
    const auto start = static_cast<int>(PathText(native.GetCharset()).NameStart(native.View()));
    const int dot = native.ReverseFind('.');
    const bool isStep = native.View().substr(static_cast<std::size_t>(start)) == "..";
    const int end = dot > start && !isStep ? dot : native.GetLength();
    directory = native.Left(start);
    name = native.Mid(start, end - start);
    extension = native.Mid(end);
}

KeldMBString QzFile::GetRelativePath(const KeldMBString& directory, const KeldMBString& path) {
    KeldMBString steps;
    const bool whole = TryCopies<KeldMBString>([&] {
        const PathText text(path.GetCharset());
        const std::string relative = text.Relative(path.View(), directory.View());
        steps = KeldMBString(relative.empty() ? text.ToGeneric(path.View()) : relative);
    });
    return whole ? steps : KeldMBString();
}

KeldMBString QzFile::ToNativePath(const KeldMBString& path) {
    const char foreign = Platform::NativePaths.separator == '/' ? '\\' : '/';
    KeldMBString native = path;
    if (native.Find(foreign) < 0)
        return native;
    TryMemory([&] {
        native = KeldMBString(PathText(path.GetCharset()).ToNative(path.View()));
        native.SetCharset(path.GetCharset());
    });
    return native;
}

} // namespace Qzc
