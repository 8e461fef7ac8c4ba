// Data files of the service: the hash of the raw text, Base64 decoding
// checked against the system's own base64 tool, and the refusals.

#include "secureFileInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

std::string run(const std::string& command)
{
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string out;
    char buffer[4096];
    size_t n;
    while (pipe && (n = fread(buffer, 1, sizeof buffer, pipe.get())) > 0) {
        out.append(buffer, n);
    }
    return out;
}

class SecureFileTest : public vekRootTest {
protected:
    secureFileInterface file{hashAlgorithmBase::CUSTOM_HASH, decoderBase::BASE64_DECODER};
};

TEST(CustomHash, SumOfTheReducedTerms)
{
    customHash hash;
    EXPECT_EQ(hash.computeHash(""), 0u);
    EXPECT_EQ(hash.computeHash("ab"), 6075u);
    // Bytes count unsigned.
    EXPECT_EQ(hash.computeHash(std::string(1, '\xff')), 255u);
    // Long texts: the terms are reduced, the sum is not.
    uint64_t expected = 0, power = 1;
    const std::string text(5000, 'z');
    for (unsigned char c : text) {
        expected += (c * power) % 1000000009;
        power = (power * 61) % 1000000009;
    }
    EXPECT_EQ(hash.computeHash(text), expected);
    EXPECT_GT(expected, 1000000009u);
}

TEST_F(SecureFileTest, DecodesWhatTheBase64ToolEncoded)
{
    // Every byte value, and the three lengths of the last group.
    std::string content;
    for (int i = 0; i < 256 * 3 + 2; ++i) {
        content += static_cast<char>((i * 7) & 0xFF);
    }
    for (size_t cut : {content.size(), content.size() - 1, content.size() - 2}) {
        root.writeFile("/data.bin", content.substr(0, cut));
        const std::string encoded = run("base64 -w0 '" + root.hostPath("/data.bin") + "'");
        root.writeFile("/data.db", encoded);
        std::string decoded;
        file.verifyFileAndDecodeOutput(root.hostPath("/data.db"), customHash().computeHash(encoded), decoded);
        EXPECT_EQ(decoded, content.substr(0, cut)) << cut;
        EXPECT_EQ(run("base64 -d '" + root.hostPath("/data.db") + "'"), decoded);
    }
}

TEST_F(SecureFileTest, EmptyFileWithHashZeroDecodesToNothing)
{
    root.writeFile("/empty.db", "");
    std::string decoded = "old";
    file.verifyFileAndDecodeOutput(root.hostPath("/empty.db"), 0, decoded);
    EXPECT_EQ(decoded, "");
}

TEST_F(SecureFileTest, TamperedOrMalformedFilesAreRefused)
{
    root.writeFile("/data.db", "aGVsbG8gd29ybGQ=");
    const uint64_t good = customHash().computeHash("aGVsbG8gd29ybGQ=");
    std::string decoded;
    file.verifyFileAndDecodeOutput(root.hostPath("/data.db"), good, decoded);
    EXPECT_EQ(decoded, "hello world");

    // One byte flipped: the hash catches it before any decoding.
    root.writeFile("/data.db", "aGVsbG8gd29ybGR=");
    decoded = "untouched";
    try {
        file.verifyFileAndDecodeOutput(root.hostPath("/data.db"), good, decoded);
        FAIL();
    } catch (const secureFileExceptions::hashException& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Input File Tampered! Error Code = [", 0), 0u);
    }
    EXPECT_EQ(decoded, "untouched");

    const struct {
        const char* text;
        bool sizeError;
    } malformed[] = {{"aGVsbG8", true}, {"aGV$bG8=", false}, {"aG=sbG8=", false}, {"aGVsbG8====", true}};
    for (const auto& m : malformed) {
        root.writeFile("/bad.db", m.text);
        const uint64_t hash = customHash().computeHash(m.text);
        if (m.sizeError) {
            EXPECT_THROW(file.verifyFileAndDecodeOutput(root.hostPath("/bad.db"), hash, decoded),
                         secureFileExceptions::invalidDataSize)
                << m.text;
        } else {
            EXPECT_THROW(file.verifyFileAndDecodeOutput(root.hostPath("/bad.db"), hash, decoded),
                         secureFileExceptions::invalidCharacterSet)
                << m.text;
        }
    }
}

TEST_F(SecureFileTest, MissingFileIsLoggedAndReadsAsEmpty)
{
    vekLogTail log(vekTestMainLogPath());
    std::string data = "kept";
    EXPECT_FALSE(file.readDB(root.hostPath("/absent.db"), data));
    EXPECT_TRUE(log.contains("Failed to open file: (" + root.hostPath("/absent.db") + "): Error: [2 - No such file"));
}

} // namespace
