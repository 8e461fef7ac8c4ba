#include "secureFileInterface.h"

#include "vekLog.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

const char TAG[] = "SECURE_FILE_INTERFACE";
const uint64_t kHashBase = 61;
const uint64_t kHashModulus = 1000000009;
const unsigned char kInvalid = 100;

// The value of each Base64 byte; kInvalid outside the alphabet, "=" as 0.
struct Base64Table {
    unsigned char values[128];
    Base64Table()
    {
        memset(values, kInvalid, sizeof values);
        const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (unsigned char i = 0; i < 64; ++i) {
            values[static_cast<unsigned char>(alphabet[i])] = i;
        }
        values[static_cast<unsigned char>('=')] = 0;
    }
};
const Base64Table kBase64;

unsigned char valueOf(unsigned char byte)
{
    return byte < 128 ? kBase64.values[byte] : kInvalid;
}

} // namespace

uint64_t customHash::computeHash(std::string text)
{
    uint64_t sum = 0;
    uint64_t power = 1;
    for (unsigned char c : text) {
        sum += (c * power) % kHashModulus;
        power = (power * kHashBase) % kHashModulus;
    }
    return sum;
}

bool base64Decoder::isValidBase64Size(const std::string& text)
{
    return text.size() % 4 == 0;
}

bool base64Decoder::isValidBase64Character(unsigned char byte)
{
    return valueOf(byte) != kInvalid;
}

bool base64Decoder::isValidBase64CharacterSet(const std::string& text)
{
    const size_t padding = text.find('=');
    if (padding != std::string::npos) {
        // Padding only at the very end: "x=" or "xx==" of the last group.
        if (text.size() - padding > 2 || text.find_first_not_of('=', padding) != std::string::npos) {
            return false;
        }
    }
    for (unsigned char c : text) {
        if (!isValidBase64Character(c)) {
            return false;
        }
    }
    return true;
}

void base64Decoder::verifyValidity(std::string text)
{
    if (!isValidBase64Size(text)) {
        throw secureFileExceptions::invalidDataSize("Base64 text of " + std::to_string(text.size()) +
                                                    " bytes is not a multiple of 4");
    }
    if (!isValidBase64CharacterSet(text)) {
        throw secureFileExceptions::invalidCharacterSet("Base64 text holds a byte outside its alphabet");
    }
}

std::string base64Decoder::decodeQuadruple(unsigned char a, unsigned char b, unsigned char c, unsigned char d)
{
    const uint32_t joined = static_cast<uint32_t>(valueOf(a)) << 18 | static_cast<uint32_t>(valueOf(b)) << 12 |
                            static_cast<uint32_t>(valueOf(c)) << 6 | valueOf(d);
    std::string bytes;
    bytes += static_cast<char>(joined >> 16 & 0xFF);
    bytes += static_cast<char>(joined >> 8 & 0xFF);
    bytes += static_cast<char>(joined & 0xFF);
    return bytes;
}

void base64Decoder::decodeData(std::string text, std::string& out)
{
    out.clear();
    for (size_t at = 0; at + 4 <= text.size(); at += 4) {
        std::string bytes = decodeQuadruple(text[at], text[at + 1], text[at + 2], text[at + 3]);
        // Padding cuts the last group short.
        if (text[at + 2] == '=') {
            bytes.resize(1);
        } else if (text[at + 3] == '=') {
            bytes.resize(2);
        }
        out += bytes;
    }
}

secureFileInterface::secureFileInterface(hashAlgorithmBase::hashType hash, decoderBase::decoderType decoder)
    : hash_(createHashInterfaceObject(hash)), decoder_(createDecoderObject(decoder))
{
}

std::unique_ptr<hashAlgorithmBase> secureFileInterface::createHashInterfaceObject(hashAlgorithmBase::hashType)
{
    return std::unique_ptr<hashAlgorithmBase>(new customHash());
}

std::unique_ptr<decoderBase> secureFileInterface::createDecoderObject(decoderBase::decoderType)
{
    return std::unique_ptr<decoderBase>(new base64Decoder());
}

bool secureFileInterface::readDB(const std::string& path, std::string& data)
{
    try {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            const int error = errno;
            VEK_LOG_ERROR(TAG, "Failed to open file: (%s): Error: [%d - %s]", path.c_str(), error, strerror(error));
            return false;
        }
        std::ostringstream text;
        text << file.rdbuf();
        data = text.str();
        return true;
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Exception Caught while reading file: [%s]. Error = (%s).", path.c_str(), e.what());
        return false;
    }
}

void secureFileInterface::verifyFileAndDecodeOutput(std::string path, unsigned long expectedHash, std::string& output)
{
    std::string data;
    readDB(path, data);
    const uint64_t hash = hash_->computeHash(data);
    if (hash != expectedHash) {
        throw secureFileExceptions::hashException("Input File Tampered! Error Code = [" + std::to_string(hash) + "]");
    }
    decoder_->verifyValidity(data);
    decoder_->decodeData(data, output);
}
