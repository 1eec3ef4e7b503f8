#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/leadbytes.h"
#include "platform/pathsyntax.h"

namespace KELD {

/// Paths as the bytes of a charset, without asking the system. Both `/` and `\` separate, unless one is the second byte
/// of a character; results have the system's own.
class PathText {
public:
    explicit PathText(KELDCharset::Charset charset, const Platform::PathSyntax& syntax = Platform::NativePaths)
        : m_leadBytes(charset), m_syntax(syntax) {}

    std::string ToNative(std::string_view path) const { return WithSeparator(path, m_syntax.separator); }

    /// The form for files that are read on other systems too.
    std::string ToGeneric(std::string_view path) const { return WithSeparator(path, '/'); }

    /// A native path from the last separator on is its name; this is where that starts.
    std::size_t NameStart(std::string_view native) const {
        std::size_t start = VolumeLength(native);
        for (std::size_t i = start; i < native.size(); ++i) {
            if (IsPair(native, i))
                ++i;
            else if (native[i] == m_syntax.separator)
                start = i + 1;
        }
        return start;
    }

    /// A native path seen from a native directory.
    std::string Join(std::string_view directory, std::string_view path) const {
        const std::string_view volume = path.substr(0, VolumeLength(path));
        const std::string_view base = directory.substr(0, VolumeLength(directory));
        const bool rooted = path.size() > volume.size() && path[volume.size()] == m_syntax.separator;
        if (rooted && volume.empty())
            return std::string(base).append(path);
        if (rooted || (!volume.empty() && volume != base))
            return std::string(path);
        std::string joined(directory);
        const bool isShare = base.size() > 2 && base == directory;
        if (isShare || NameStart(directory) < directory.size())
            joined += m_syntax.separator;
        return joined.append(path.substr(volume.size()));
    }

    /// Without empty, "." and needless ".." steps; nothing left is ".". What ends like a directory still does.
    std::string Normal(std::string_view native) const {
        const Parts parts = Split(native);
        if (parts.names.empty()) // nothing, or a root as it is written
            return std::string(native);
        std::vector<std::string_view> steps;
        bool endsOpen = false;
        for (const std::string_view name : parts.names) {
            const bool isBack = name == "..";
            endsOpen = name.empty() || name == "." || (isBack && !steps.empty() && steps.back() != "..");
            if (isBack && endsOpen)
                steps.pop_back();
            else if (!endsOpen && (!isBack || !parts.rooted))
                steps.push_back(name);
        }
        std::string normal(parts.volume);
        if (parts.rooted)
            normal += m_syntax.separator;
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (i != 0)
                normal += m_syntax.separator;
            normal += steps[i];
        }
        if (endsOpen && !steps.empty() && steps.back() != "..")
            normal += m_syntax.separator;
        return normal.empty() ? "." : normal;
    }

    /// The steps from a native directory to a native path, without a look at the disk and separated by `/` on every
    /// system. Empty when there is no such way.
    std::string Relative(std::string_view native, std::string_view directory) const {
        const Parts to = Split(native);
        const Parts from = Split(directory);
        if (to.volume != from.volume || to.rooted != from.rooted)
            return std::string();
        std::size_t common = 0;
        while (common < to.names.size() && common < from.names.size() && to.names[common] == from.names[common])
            ++common;
        if (common == to.names.size() && common == from.names.size())
            return ".";
        int up = 0;
        for (std::size_t i = common; i < from.names.size(); ++i)
            up += from.names[i] == ".." ? -1 : from.names[i].empty() || from.names[i] == "." ? 0 : 1;
        if (up < 0)
            return std::string();
        if (up == 0 && (common == to.names.size() || to.names[common].empty()))
            return ".";
        std::string relative;
        const auto append = [&](std::string_view name) {
            if (!relative.empty())
                relative += '/';
            relative += name;
        };
        for (; up > 0; --up)
            append("..");
        for (std::size_t i = common; i < to.names.size(); ++i)
            append(to.names[i]);
        return relative;
    }

private:
    struct Parts {
        std::string_view volume;
        bool rooted;
        std::vector<std::string_view> names; ///< the last is empty where a separator ends the path
    };

    /// Whether a character of two bytes starts there. No charset has '/' as a second byte.
    bool IsPair(std::string_view text, std::size_t at) const {
        return m_leadBytes.Holds(static_cast<unsigned char>(text[at])) && at + 1 < text.size() && text[at + 1] != '/';
    }

    std::string WithSeparator(std::string_view path, char separator) const {
        std::string native(path);
        for (std::size_t i = 0; i < native.size(); ++i) {
            if (IsPair(native, i))
                ++i;
            else if (native[i] == '/' || native[i] == '\\')
                native[i] = separator;
        }
        return native;
    }

    /// Of a drive, or of a server and its share.
    std::size_t VolumeLength(std::string_view native) const {
        if (!m_syntax.hasVolumes || native.size() < 2)
            return 0;
        const char letter = static_cast<char>(native[0] | 0x20);
        if (letter >= 'a' && letter <= 'z' && native[1] == ':')
            return 2;
        const char separator = m_syntax.separator;
        if (native[0] != separator || native[1] != separator || native.size() == 2 || native[2] == separator)
            return 0;
        const std::size_t share = Step(native, 2);
        return share < native.size() ? Step(native, share + 1) : share;
    }

    /// Where the name at `start` ends.
    std::size_t Step(std::string_view native, std::size_t start) const {
        std::size_t end = start;
        while (end < native.size() && native[end] != m_syntax.separator)
            end += IsPair(native, end) ? 2 : 1;
        return end;
    }

    Parts Split(std::string_view native) const {
        Parts parts = {native.substr(0, VolumeLength(native)), false, {}};
        std::size_t at = parts.volume.size();
        parts.rooted = at < native.size() && native[at] == m_syntax.separator;
        while (at < native.size() && native[at] == m_syntax.separator)
            ++at;
        while (at < native.size()) {
            const std::size_t end = Step(native, at);
            parts.names.push_back(native.substr(at, end - at));
            at = end;
            while (at < native.size() && native[at] == m_syntax.separator)
                ++at;
            if (at == native.size() && end < native.size())
                parts.names.push_back(std::string_view());
        }
        return parts;
    }

    LeadBytes m_leadBytes;
    const Platform::PathSyntax& m_syntax;
};

} // namespace KELD
