#include "vekHostOSInfo.h"

void vekHostOSInfo::setKernelCmdLine(const std::string& value)
{
    KernelCmdLine = value;
    hasOSConfiguration_ = true;
}

void vekHostOSInfo::setCrashKernelCmd(const std::string& value)
{
    CrashKernelCmd = value;
    hasOSConfiguration_ = true;
}

void vekHostOSInfo::setCrashKernelMemBytes(long value)
{
    CrashKernelMemBytes = value;
    hasOSConfiguration_ = true;
}

void vekHostOSInfo::setCrashkernelLoaded(const std::string& value)
{
    CrashkernelLoaded = value;
    hasOSConfiguration_ = true;
}

void vekHostOSInfo::setKDumpSvcsEnabled(const std::string& value)
{
    KDumpSvcsEnabled = value;
    hasOSConfiguration_ = true;
}

void vekHostOSInfo::setKDumpSvcsStatus(const std::string& value)
{
    KDumpSvcsStatus = value;
    hasOSConfiguration_ = true;
}

void vekHostOSInfo::setListOfSoftwaresInstalled(const std::string& value)
{
    ListOfSoftwaresInstalled = value;
    hasSoftwareList_ = true;
}
