// Uses each floor of an installed toolkit once, so that a missing header, library or symbol shows.

#include <cstdio>

#include "base/keldmbstring.h"
#include "stream/qzmemorystream.h"
#include "toolkit/qztextcodec.h"

#if __cplusplus < 201703L
#error "The package does not ask for C++17"
#endif

using namespace Qzc;

int main() {
    KeldMBString written("\xD6\xD0\xCE\xC4"); // two Chinese characters in GB2312
    QzMemoryStream out;
    out << written;

    QzMemoryStream in(out.GetData(), out.GetLength());
    KeldMBString read;
    in >> read;

    QzTextCodec codec("UTF-8", "GB2312");
    KeldMBString utf8;
    if (!in.IsGood() || !codec.Convert(utf8, read))
        return 1;
    for (int i = 0; i < utf8.GetLength(); ++i)
        std::printf("%02X ", static_cast<unsigned>(static_cast<unsigned char>(utf8[i])));
    std::printf("from a stream of %lld bytes\n", static_cast<long long>(out.GetLength()));
    return 0;
}
