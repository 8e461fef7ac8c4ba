#pragma once

#include "vekLogicalDiskConsistencyCheckStateBase.h"
#include "vekLogicalDiskInfo.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

// Outcomes of a consistency check.
enum VEK_MR_CC_RESULT {
    VEK_MR_CC_NONE = 0,
    VEK_MR_CC_CLEAN = 1,
    VEK_MR_CC_FINDINGS = 2,
    VEK_MR_CC_ABORTED = 3,
    VEK_MR_CC_FAILED = 4,
    VEK_MR_CC_FAILED_UNCORRECTABLE = 5,
};

// What one consistency check of a MegaRAID logical disk found so far: the
// findings are only counted while the check runs, and told once at its end.
class vekMegaRAIDLogicalDiskConsistencyCheckState : public vekLogicalDiskConsistencyCheckStateBase {
public:
    std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> clone() const override;
    // "# Corrected medium errors = 3; # Inconsistent parity > 10": the
    // non-zero counts, in the order of their names.
    virtual std::string getStateInfoString();

    virtual int getCCResult() const { return ccResult_; }
    virtual void setCCResult(int value) { ccResult_ = value; }
    virtual bool getCCFaultDetected() const { return ccFaultDetected_; }
    virtual void setCCFaultDetected(bool value) { ccFaultDetected_ = value; }
    virtual std::string getCCEventMessage() const { return ccEventMessage_; }
    virtual void setCCEventMessage(const std::string& value) { ccEventMessage_ = value; }
    virtual uint64_t getCorrectedMediumErrorCount() const { return correctedMediumErrors_; }
    virtual void setCorrectedMediumErrorCount(uint64_t value) { correctedMediumErrors_ = value; }
    virtual uint64_t getUncorrectableMultipleMediumErrorCount() const { return uncorrectableMediumErrors_; }
    virtual void setUncorrectableMultipleMediumErrorCount(uint64_t value) { uncorrectableMediumErrors_ = value; }
    virtual uint64_t getInconsistentParityCount() const { return inconsistentParity_; }
    virtual void setInconsistentParityCount(uint64_t value) { inconsistentParity_ = value; }
    virtual bool getTooManyInconsistentParityDetected() const { return tooManyInconsistentParity_; }
    virtual void setTooManyInconsistentParityDetected(bool value) { tooManyInconsistentParity_ = value; }

    const std::map<std::string, uint64_t>& getFindings() const { return findings_; }
    void setFindings(const std::map<std::string, uint64_t>& findings) { findings_ = findings; }

    // Everything but the findings map back to a check not yet begun.
    void resetCCState();

private:
    int ccResult_ = VEK_MR_CC_NONE;
    bool ccFaultDetected_ = false;
    std::string ccEventMessage_;
    uint64_t correctedMediumErrors_ = 0;
    uint64_t uncorrectableMediumErrors_ = 0;
    uint64_t inconsistentParity_ = 0;
    bool tooManyInconsistentParity_ = false;
    std::map<std::string, uint64_t> findings_;
};

// Gives the disk two fresh, zeroed states of that kind.
template <typename State>
void initializeConsistencyCheckState(vekLogicalDiskInfo& disk)
{
    disk.setCurrentCCState(std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase>(new State()));
    disk.setPreviousCCState(std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase>(new State()));
}

// Copies both states of another record, so a running check survives a rebuild.
void cloneConsistencyCheckState(vekLogicalDiskInfo& disk, const vekLogicalDiskInfo& from);
