#pragma once

// The exceptions of the IPMI layer.
//
// ipmi_exceptions: failures of the channel itself (the device or the external
// link), raised inside vekIPMIService and ipmi::IPMIUtils.
//
// vekIPMI: failures of the standard commands of vekIPMI::IPMIServiceInterface
// (Get Device ID, the SDR repository): an answer of the wrong size or a
// completion code other than 0.

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>

namespace ipmi_exceptions {

// Base of the channel failures: carries its text.
class ipmi_error : public std::exception {
public:
    explicit ipmi_error(std::string what) : what_(std::move(what)) {}
    const char* what() const noexcept override { return what_.c_str(); }

private:
    std::string what_;
};

// No channel open (no descriptor, no usable external address).
class invalid_handle : public ipmi_error {
public:
    explicit invalid_handle(std::string what = "IPMI handle is not valid") : ipmi_error(std::move(what)) {}
};

// The request could not be sent.
class send_error : public ipmi_error {
public:
    using ipmi_error::ipmi_error;
};

// Nothing to read when the wait ended: no answer.
class wait_error : public ipmi_error {
public:
    using ipmi_error::ipmi_error;
};

// The wait for the answer itself failed.
class wait_fd_free_failed : public ipmi_error {
public:
    using ipmi_error::ipmi_error;
};

// The answer could not be read.
class no_ack : public ipmi_error {
public:
    using ipmi_error::ipmi_error;
};

class memory_error : public ipmi_error {
public:
    explicit memory_error(std::string what = "Unable to allocate the IPMI request buffer")
        : ipmi_error(std::move(what))
    {
    }
};

class invalid_arguments : public ipmi_error {
public:
    explicit invalid_arguments(std::string what = "Provided command / arguments is not valid")
        : ipmi_error(std::move(what))
    {
    }
};

} // namespace ipmi_exceptions

namespace vekIPMI {

class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "Incorrect response data size for <command>!"
class InvalidResponseDataSizeException : public Exception {
public:
    explicit InvalidResponseDataSizeException(const std::string& command);
};

// "IPMI command failed with: [<code>]"
class IPMICommandFailureException : public Exception {
public:
    explicit IPMICommandFailureException(unsigned char completionCode);
    unsigned char completionCode() const { return completionCode_; }

private:
    unsigned char completionCode_;
};

// Completion code 0xC5: the SDR reservation was cancelled (another reservation
// was taken, or the repository changed).
class SDRRepositoryReservationNotValidException : public IPMICommandFailureException {
public:
    SDRRepositoryReservationNotValidException();
};

} // namespace vekIPMI
