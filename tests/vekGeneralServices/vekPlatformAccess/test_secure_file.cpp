// Data files of the service: the hash of the raw text, Base64 decoding
// checked against the system's own base64 tool, and the refusals.

#include "secureFileInterface.h"
#include "vekDiskEmulator.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class SecureFileTest : public vekRootTest {
protected:
    secureFileInterface file{hashAlgorithmBase::CUSTOM_HASH, decoderBase::BASE64_DECODER};
};

TEST(CustomHash, SumOfTheReducedTerms)
{
    customHash hash;
    EXPECT_EQ(hash.computeHash(""), 0u);
    EXPECT_EQ(hash.computeHash("ab"), 6075u);
    EXPECT_EQ(hash.computeHash(std::string(1, '\xff')), 255u); // bytes count unsigned
    // The terms are reduced, the sum is not (it passes both the modulus and 32 bits).
    EXPECT_EQ(hash.computeHash(std::string(5000, 'z')), 2486362866739ULL);
}

TEST_F(SecureFileTest, DecodesWhatTheBase64ToolEncoded)
{
    // Every byte value, and the three lengths of the last group; an empty file with hash 0 too.
    std::string content;
    for (int i = 0; i < 256 * 3 + 2; ++i) {
        content += static_cast<char>((i * 7) & 0xFF);
    }
    for (size_t cut : {content.size(), content.size() - 1, content.size() - 2, size_t(0)}) {
        root.writeFile("/data.bin", content.substr(0, cut));
        const std::string encoded = vekRunProgram({"base64", "-w0", root.hostPath("/data.bin")}).output;
        root.writeFile("/data.db", encoded);
        std::string decoded = "old";
        file.verifyFileAndDecodeOutput(root.hostPath("/data.db"), customHash().computeHash(encoded), decoded);
        EXPECT_EQ(decoded, content.substr(0, cut)) << cut;
    }
}

TEST_F(SecureFileTest, TamperedOrMalformedFilesAreRefused)
{
    // One byte flipped: the hash catches it before any decoding.
    root.writeFile("/data.db", "aGVsbG8gd29ybGR=");
    std::string decoded = "untouched";
    try {
        file.verifyFileAndDecodeOutput(root.hostPath("/data.db"), customHash().computeHash("aGVsbG8gd29ybGQ="),
                                       decoded);
        FAIL();
    } catch (const secureFileExceptions::hashException& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Input File Tampered! Error Code = [", 0), 0u);
    }
    EXPECT_EQ(decoded, "untouched");

    // Two of a size that is no Base64, then two with a character out of place.
    int row = 0;
    for (const char* text : {"aGVsbG8", "aGVsbG8====", "aGV$bG8=", "aG=sbG8="}) {
        root.writeFile("/bad.db", text);
        const bool size = row++ < 2;
        try {
            file.verifyFileAndDecodeOutput(root.hostPath("/bad.db"), customHash().computeHash(text), decoded);
            ADD_FAILURE() << text;
        } catch (const secureFileExceptions::invalidDataSize&) {
            EXPECT_TRUE(size) << text;
        } catch (const secureFileExceptions::invalidCharacterSet&) {
            EXPECT_FALSE(size) << text;
        }
    }

    vekLogTail log(vekTestMainLogPath());
    EXPECT_FALSE(file.readDB(root.hostPath("/absent.db"), decoded));
    EXPECT_TRUE(log.contains("Failed to open file: (" + root.hostPath("/absent.db") + "): Error: [2 - No such file"));
}

} // namespace
