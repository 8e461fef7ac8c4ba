#include "vekMegaRAIDLogicalDiskConsistencyCheckState.h"

std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> vekMegaRAIDLogicalDiskConsistencyCheckState::clone() const
{
    return std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase>(
        new vekMegaRAIDLogicalDiskConsistencyCheckState(*this));
}

std::string vekMegaRAIDLogicalDiskConsistencyCheckState::getStateInfoString()
{
    findings_["Corrected medium errors"] = correctedMediumErrors_;
    findings_["Uncorrectable multiple medium errors"] = uncorrectableMediumErrors_;
    findings_["Inconsistent parity"] = inconsistentParity_;
    std::string text;
    for (const auto& finding : findings_) {
        if (finding.second == 0) {
            continue;
        }
        const std::string item = finding.first == "Inconsistent parity" && tooManyInconsistentParity_
                                     ? "# Inconsistent parity > 10"
                                     : "# " + finding.first + " = " + std::to_string(finding.second);
        text += (text.empty() ? "" : "; ") + item;
    }
    return text;
}

void vekMegaRAIDLogicalDiskConsistencyCheckState::resetCCState()
{
    ccFaultDetected_ = false;
    ccEventMessage_.clear();
    ccResult_ = VEK_MR_CC_NONE;
    correctedMediumErrors_ = 0;
    uncorrectableMediumErrors_ = 0;
    inconsistentParity_ = 0;
    tooManyInconsistentParity_ = false;
}

void cloneConsistencyCheckState(vekLogicalDiskInfo& disk, const vekLogicalDiskInfo& from)
{
    disk.setCurrentCCState(from.getCurrentCCState() != nullptr ? from.getCurrentCCState()->clone() : nullptr);
    disk.setPreviousCCState(from.getPreviousCCState() != nullptr ? from.getPreviousCCState()->clone() : nullptr);
}
