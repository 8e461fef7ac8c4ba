// cardmatrixdb CARDS.json DATABASE: writes a card matrix database from a
// JSON list of cards, in the service's data file format (the Base64 text of
// the content), and prints the hash the service will check it against.

#include "secureFileInterface.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string base64(const std::string& bytes)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t at = 0;
    for (; at + 3 <= bytes.size(); at += 3) {
        const unsigned n = static_cast<unsigned char>(bytes[at]) << 16 | static_cast<unsigned char>(bytes[at + 1]) << 8 |
                           static_cast<unsigned char>(bytes[at + 2]);
        out += {alphabet[n >> 18 & 63], alphabet[n >> 12 & 63], alphabet[n >> 6 & 63], alphabet[n & 63]};
    }
    if (at + 1 == bytes.size()) {
        const unsigned n = static_cast<unsigned char>(bytes[at]) << 16;
        out += {alphabet[n >> 18 & 63], alphabet[n >> 12 & 63], '=', '='};
    } else if (at + 2 == bytes.size()) {
        const unsigned n = static_cast<unsigned char>(bytes[at]) << 16 | static_cast<unsigned char>(bytes[at + 1]) << 8;
        out += {alphabet[n >> 18 & 63], alphabet[n >> 12 & 63], alphabet[n >> 6 & 63], '='};
    }
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: cardmatrixdb CARDS.json DATABASE\n");
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    if (!in) {
        fprintf(stderr, "cardmatrixdb: cannot read %s\n", argv[1]);
        return 1;
    }
    std::ostringstream content;
    content << in.rdbuf();
    const std::string encoded = base64(content.str());
    std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
    out << encoded;
    if (!out.flush()) {
        fprintf(stderr, "cardmatrixdb: cannot write %s\n", argv[2]);
        return 1;
    }
    printf("%llu\n", static_cast<unsigned long long>(customHash().computeHash(encoded)));
    return 0;
}
