#pragma once

// Data files that ship with the service, read whole, checked against a hash
// the caller holds, and decoded. The format is the plain Base64 text of the
// content, in one piece, with no header.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace secureFileExceptions {

class cryptographicException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
class encoderDecoderException : public cryptographicException {
public:
    using cryptographicException::cryptographicException;
};
class hashException : public cryptographicException {
public:
    using cryptographicException::cryptographicException;
};
class invalidCharacterSet : public encoderDecoderException {
public:
    using encoderDecoderException::encoderDecoderException;
};
class invalidDataSize : public encoderDecoderException {
public:
    using encoderDecoderException::encoderDecoderException;
};

} // namespace secureFileExceptions

class hashAlgorithmBase {
public:
    enum hashType { CUSTOM_HASH = 0 };
    virtual ~hashAlgorithmBase() = default;
    virtual uint64_t computeHash(std::string text) = 0;
};

// A polynomial hash, base 61, modulus 1000000009: the sum (not reduced) of
// byte * 61^i mod 1000000009 over the bytes, unsigned, from the first.
class customHash : public hashAlgorithmBase {
public:
    uint64_t computeHash(std::string text) override;
};

class decoderBase {
public:
    enum decoderType { BASE64_DECODER = 0 };
    virtual ~decoderBase() = default;
    // invalidDataSize or invalidCharacterSet when the text can't be decoded.
    virtual void verifyValidity(std::string text) = 0;
    virtual void decodeData(std::string text, std::string& out) = 0;
};

// Base64 with the standard alphabet ("+", "/"), "=" as padding at the end.
class base64Decoder : public decoderBase {
public:
    void verifyValidity(std::string text) override;
    void decodeData(std::string text, std::string& out) override;

    static bool isValidBase64Size(const std::string& text);
    static bool isValidBase64Character(unsigned char byte);
    static bool isValidBase64CharacterSet(const std::string& text);
    static std::string decodeQuadruple(unsigned char a, unsigned char b, unsigned char c, unsigned char d);
};

class secureFileInterface {
public:
    secureFileInterface(hashAlgorithmBase::hashType hash, decoderBase::decoderType decoder);

    // Reads the file, checks its hash (of the raw text) and decodes it into
    // output. hashException "Input File Tampered! ..." on a wrong hash; the
    // decoder's exceptions on a malformed text; a file that can't be read is
    // empty text.
    void verifyFileAndDecodeOutput(std::string path, unsigned long expectedHash, std::string& output);
    bool readDB(const std::string& path, std::string& data);

    static std::unique_ptr<hashAlgorithmBase> createHashInterfaceObject(hashAlgorithmBase::hashType type);
    static std::unique_ptr<decoderBase> createDecoderObject(decoderBase::decoderType type);

private:
    std::unique_ptr<hashAlgorithmBase> hash_;
    std::unique_ptr<decoderBase> decoder_;
};
