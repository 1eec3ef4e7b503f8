#include "stream/qzfile.h"

#include <filesystem>
#include <memory>
#include <system_error>

#include "base/keldsystem.h"
#include "platform/file.h"
#include "platform/filereplacement.h"
#include "platform/module.h"

namespace Qzc {

namespace {

constexpr char Separator = static_cast<char>(std::filesystem::path::preferred_separator);

KeldMBString ErrorText(int error) {
    return error != 0 ? KeldMBString(std::generic_category().message(error)) : KeldMBString();
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
    int error = 0;
    m_handle = Platform::OpenFile(ToNativePath(path).Cstr(), ToPlatform(access), error);
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

bool QzFile::HasName() const {
    return Platform::FileHasName(m_handle);
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
    const std::int64_t length = GetLength();
    if (length > KeldMBString::MaxLength)
        return Report(static_cast<int>(std::errc::file_too_large));
    if (length < 0 || !Seek(0))
        return false;
    std::string bytes(static_cast<std::size_t>(length), '\0');
    int error = 0;
    const std::int64_t done = Platform::ReadFile(m_handle, bytes.data(), length, error);
    bytes.resize(static_cast<std::size_t>(done));
    if (!Report(error))
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
    bool replaced = Platform::OpenReplacement(ToNativePath(path).Cstr(), replacement, failure);
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
    return Platform::FileExists(ToNativePath(path).Cstr());
}

void QzFile::Remove(const KeldMBString& path) {
    Platform::RemoveFile(ToNativePath(path).Cstr());
}

KeldMBString QzFile::GetModulePath(const char* moduleName) {
    const std::string path = moduleName != nullptr ? Platform::ModulePath(moduleName) : std::string();
    const std::size_t separator = path.rfind(Separator);
    return separator == std::string::npos ? KeldMBString() : KeldMBString(path.substr(0, separator + 1));
}

KeldMBString QzFile::GetAbsolutePath(const KeldMBString& directory, const KeldMBString& path) {
    const std::filesystem::path base(ToNativePath(directory).Cstr());
    return KeldMBString((base / ToNativePath(path).Cstr()).lexically_normal().string());
}

void QzFile::SplitPath(const KeldMBString& path, KeldMBString& directory, KeldMBString& name, KeldMBString& extension) {
    const KeldMBString native = ToNativePath(path);
    const int start = native.ReverseFind(Separator) + 1;
    const int dot = native.ReverseFind('.');
    const int end = dot > start ? dot : native.GetLength();
    directory = native.Left(start);
    name = native.Mid(start, end - start);
    extension = native.Mid(end);
}

KeldMBString QzFile::ToNativePath(const KeldMBString& path) {
    constexpr char Foreign = Separator == '/' ? '\\' : '/';
    KeldMBString native = path;
    if (native.Find(Foreign) < 0)
        return native;
    for (int i = 0; i < native.GetLength(); ++i) {
        // The second byte of a two-byte character may look like a backslash.
        if (KeldSystem::IsLeadByte(native.GetCharset(), static_cast<unsigned char>(native[i])))
            ++i;
        else if (native[i] == Foreign)
            native.SetAt(i, Separator);
    }
    return native;
}

} // namespace Qzc
