#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/keldsystem.h"
#include "commands.h"
#include "letters.h"
#include "stream/qzfile.h"
#include "system.h"
#include "textguess.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;

namespace Motool {

namespace {

struct TextOptions {
    std::string file;
    std::string from;
    std::string to;
    std::string output;
    bool guesses = false;
};

int Guess(const TextOptions& options, const KeldMBString& text, KeldMBString& from) {
    const auto charsets = GuessCharsets(text.View());
    if (charsets.empty())
        return Fail(Shown(options.file) + ": no encoding is likely");
    from = KeldSystem::GetCharsetName(charsets.front());
    if (!options.to.empty())
        return Done;
    for (const KELDCharset::Charset charset : charsets)
        PrintLine(KeldSystem::GetCharsetName(charset).View());
    return Done;
}

// Characters count, wherever their encoding has them.
void CountTo(std::string_view utf8, std::int64_t& line, std::int64_t& column) {
    line = std::count(utf8.begin(), utf8.end(), '\n') + 1;
    const std::size_t start = utf8.rfind('\n') + 1;
    column = 1 + std::count_if(utf8.begin() + static_cast<std::ptrdiff_t>(start), utf8.end(),
                               [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
}

std::string Hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        KeldMBString byte;
        byte.Format(" %02X", static_cast<unsigned int>(static_cast<unsigned char>(c)));
        text += byte.View();
    }
    return text;
}

/// Reads text of a charset. A codec between two equal names would copy whatever there is.
class Reader {
public:
    explicit Reader(const KeldMBString& from)
        : m_isWide(from != "UTF-8"), m_codec(m_isWide ? "UTF-8" : "UTF-32LE", from) {}

    bool IsOpen() const { return m_codec.IsOpen() != 0; }
    int ReadableLength(const KeldMBString& text) { return m_codec.GetConvertibleLength(text.Cstr(), text.GetLength()); }
    /// Empty for what is no text.
    KeldMBString ToUtf8(const char* text, int length) {
        KeldMBString utf8;
        if (m_codec.Convert(utf8, text, length) == 0)
            return KeldMBString();
        return m_isWide ? utf8 : KeldMBString(text, length);
    }

private:
    bool m_isWide;
    QzTextCodec m_codec;
};

// The character at an offset, which is as long as it takes to be one, in the terminal's charset.
std::string LetterAt(const KeldMBString& text, int offset, Reader& reader) {
    constexpr int Longest = 8;
    KeldMBString letter;
    for (int size = 1; size <= std::min(Longest, text.GetLength() - offset) && letter.IsEmpty(); ++size)
        letter = reader.ToUtf8(text.Cstr() + offset, size);
    return letter.IsEmpty() ? std::string() : ToTerminal(ToWide(letter.View(), KELDCharset::UTF8));
}

// Says where, and whether it is the text's fault or that of the encoding that it is to be in.
int TellFault(const TextOptions& options, const KeldMBString& text, const KeldMBString& from, const KeldMBString& to) {
    Reader reader(from);
    QzTextCodec codec(to, from);
    const int readable = reader.ReadableLength(text);
    const int length = std::min(readable, codec.GetConvertibleLength(text.Cstr(), text.GetLength()));
    std::int64_t line = 1;
    std::int64_t column = 1;
    CountTo(reader.ToUtf8(text.Cstr(), length).View(), line, column);
    constexpr int BytesShown = 4;
    const std::string bytes =
        "the bytes" + Hexadecimal(text.View().substr(static_cast<std::size_t>(length), BytesShown));
    std::string what = "it cannot be converted as a whole";
    if (length < text.GetLength() && length == readable)
        what = bytes + " are no text of " + Escaped(from.View());
    else if (length < text.GetLength())
        what = Escaped(to.View()) + " has no \"" + LetterAt(text, length, reader) + "\", " + bytes;
    return Fail(Shown(options.file) + ':' + Number(line) + ':' + Number(column) + ": " + what);
}

int RunText(const TextOptions& options) {
    if (options.to.empty() && !options.guesses)
        return FailUsage("text wants --to, or --guess");
    if (options.from.empty() && !options.guesses)
        return FailUsage("text wants --from, or --guess");
    if (!options.output.empty() && options.to.empty())
        return FailUsage("-o wants --to");
    QzFile file;
    KeldMBString text;
    if (!file.Open(PathOf(options.file), QzFile::Access::Read))
        return Fail(Shown(options.file) + ": " + Escaped(file.GetError().View()));
    if (!file.ReadAll(text))
        return Fail(Shown(options.file) + ": it cannot be read, or is 2 GB long or longer");
    file.Close();
    KeldMBString from(options.from);
    if (options.guesses) {
        const int status = Guess(options, text, from);
        if (status != Done || options.to.empty())
            return status;
    }
    const KeldMBString to(options.to);
    for (const KeldMBString& name : {from, to}) {
        if (!Reader(name).IsOpen())
            return FailUsage("the encoding " + Escaped(name.View()) + " is not known");
    }
    KeldMBString converted;
    const bool isConverted = from == to ? Reader(from).ReadableLength(text) == text.GetLength()
                                        : QzTextCodec(to, from).Convert(converted, text) != 0;
    if (!isConverted)
        return TellFault(options, text, from, to);
    if (from == to)
        converted = text;
    if (options.output.empty()) {
        PrintBytes(converted.View());
        return Done;
    }
    KeldMBString error;
    return QzFile::ReplaceAll(PathOf(options.output), converted, error)
               ? Done
               : Fail(Shown(options.output) + " was not written: " + Escaped(error.View()));
}

} // namespace

void AddTextCommand(CLI::App& program, Chosen& chosen) {
    const auto options = std::make_shared<TextOptions>();
    CLI::App& command =
        AddCommand(program, chosen, "text", "Convert a text between encodings",
                   "What is converted goes to standard output or, as a whole, to a file. Where a text cannot be\n"
                   "converted, that is told with line and column, and nothing is written.\n\n"
                   "Examples:\n"
                   "  motool text notes.txt --from GB2312 --to UTF-8\n"
                   "  motool text notes.txt --guess\n"
                   "  motool text notes.txt --guess --to UTF-8 -o notes.utf8.txt",
                   options, RunText);
    command.add_option("FILE", options->file, "the text")->required();
    auto* const from = command.add_option("--from", options->from, "the encoding that it is in")->type_name("ENCODING");
    command.add_option("--to", options->to, "the encoding that it is to be in")->type_name("ENCODING");
    command.add_flag("--guess", options->guesses, "guess what it is in; without --to print that, the likeliest first")
        ->excludes(from);
    command.add_option("-o,--output", options->output, "write to this file")->type_name("OUT");
}

} // namespace Motool
