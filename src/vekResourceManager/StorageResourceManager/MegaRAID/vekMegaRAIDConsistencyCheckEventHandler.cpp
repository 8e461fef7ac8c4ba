#include "vekMegaRAIDConsistencyCheckEventHandler.h"

#include "IELEvent.h"
#include "SASResourceManager.h"
#include "vekLog.h"
#include "vekMegaRAIDController.h"
#include "vekMegaRAIDLogicalDiskConsistencyCheckState.h"

#include <cstring>
#include <set>

namespace {

const char TAG[] = "LSIMR_CC_EVT_HNDLR";

enum {
    MR_EVT_LD_CC_ABORTED = 56,
    MR_EVT_LD_CC_CORRECTED_MEDIUM_ERR = 57,
    MR_EVT_LD_CC_DONE = 58,
    MR_EVT_LD_CC_DONE_INC = 59,
    MR_EVT_LD_CC_DOUBLE_MEDIUM_ERRORS = 60,
    MR_EVT_LD_CC_FAIL = 61,
    MR_EVT_LD_CC_FAILED_UNCOR = 62,
    MR_EVT_LD_CC_INCONSISTENT_PARITY = 63,
    MR_EVT_LD_CC_INCONSISTENT_PARITY_LOGGING_DISABLED = 64,
    MR_EVT_LD_CC_OWNERSHIP_LOSS_ABORT = 198,
};

// Progress and start events of a check: nothing to tell.
const std::set<uint32_t> kQuietCodes = {14, 65, 66, 305, 327, 407, 408, 414};

const char* boolWord(bool value) { return value ? "true" : "false"; }

std::string firmwareText(const VEK_SAS_EVENT_DETAIL& detail)
{
    return std::string(detail.body.description, strnlen(detail.body.description, sizeof detail.body.description));
}

void logStates(const vekLogicalDiskInfo& disk, const vekMegaRAIDLogicalDiskConsistencyCheckState& before,
               const vekMegaRAIDLogicalDiskConsistencyCheckState& after)
{
    VEK_LOG_DEBUG(TAG, "MegaRAID CC State [%s] - Old: [%d], [%s], [%s]", disk.getDurableName().c_str(),
                  before.getCCResult(), boolWord(before.getCCFaultDetected()), before.getCCEventMessage().c_str());
    VEK_LOG_DEBUG(TAG, "MegaRAID CC State [%s] - New: [%d], [%s], [%s]", disk.getDurableName().c_str(),
                  after.getCCResult(), boolWord(after.getCCFaultDetected()), after.getCCEventMessage().c_str());
}

// A finding of the running check: the first one's text is kept.
void noteFinding(vekMegaRAIDLogicalDiskConsistencyCheckState& state, const VEK_SAS_EVENT_DETAIL& detail)
{
    if (!state.getCCFaultDetected()) {
        state.setCCFaultDetected(true);
        state.setCCEventMessage(firmwareText(detail));
    }
}

// The check ended: its outcome moves to the previous state, the current one
// starts empty, and one event goes out with the member disks.
void close(vekMegaRAIDController* controller, vekLogicalDiskInfo& disk,
           vekMegaRAIDLogicalDiskConsistencyCheckState& current, vekMegaRAIDLogicalDiskConsistencyCheckState* previous,
           const VEK_SAS_EVENT_DETAIL& detail, int kind, const std::string& optional)
{
    if (previous != nullptr) {
        const vekMegaRAIDLogicalDiskConsistencyCheckState old = *previous;
        *previous = current;
        current.resetCCState();
        logStates(disk, old, *previous);
    } else {
        current.resetCCState();
    }
    disk.setEventInfoString(vekMegaRAIDController::getAddEventInfoWithOptionalDetail(detail, optional));
    std::vector<vekDiskInfo> members;
    controller->getPhyDiskListForLD(disk, members);
    vekLogicalDiskExtInfo record;
    record.setDurableName(disk.getDurableName());
    record.setRAIDLevel(disk.getRAIDLevel());
    record.setCapacityBytes(disk.getCapacityBytes());
    record.setPhysicalDiskVector(members);
    record.setEventInfoString(disk.getEventInfoString());
    record.setDeviceName(disk.getDeviceName());
    record.setHostControllerPhysicalLocation(disk.getHostControllerPhysicalLocation());
    if (previous != nullptr) {
        record.setCounterMap(previous->getFindings());
    }
    const int number = SASResourceManager::resolveEventNumber(kind);
    if (number >= 0) {
        SASResourceManager::generateEvent(number, false, record);
    }
}

} // namespace

bool vekMegaRAIDConsistencyCheckEventHandler::processConsistencyCheckEvents(vekMegaRAIDController* controller,
                                                                           vekLogicalDiskInfo& disk,
                                                                           VEK_SAS_EVENT_DETAIL* detail)
{
    auto* current = dynamic_cast<vekMegaRAIDLogicalDiskConsistencyCheckState*>(disk.getCurrentCCState());
    auto* previous = dynamic_cast<vekMegaRAIDLogicalDiskConsistencyCheckState*>(disk.getPreviousCCState());
    if (detail == nullptr || controller == nullptr || current == nullptr) {
        return false;
    }
    const vekMegaRAIDLogicalDiskConsistencyCheckState before = *current;
    switch (detail->code) {
    case MR_EVT_LD_CC_ABORTED:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_ABORTED");
        current->setCCResult(VEK_MR_CC_ABORTED);
        if (current->getCCFaultDetected()) {
            close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_FAILED,
                  current->getCCEventMessage());
        } else {
            close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_WARNING, "");
        }
        return true;
    case MR_EVT_LD_CC_CORRECTED_MEDIUM_ERR:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_CORRECTED_MEDIUM_ERR");
        noteFinding(*current, *detail);
        current->setCorrectedMediumErrorCount(current->getCorrectedMediumErrorCount() + 1);
        logStates(disk, before, *current);
        return true;
    case MR_EVT_LD_CC_DONE:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_DONE");
        if (current->getCCFaultDetected()) {
            current->setCCResult(VEK_MR_CC_FINDINGS);
            const std::string summary = current->getStateInfoString();
            close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_WARNING, summary);
        } else {
            current->setCCResult(VEK_MR_CC_CLEAN);
            close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_PASSED, "");
        }
        return true;
    case MR_EVT_LD_CC_DONE_INC: {
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_DONE_INC");
        current->setCCResult(VEK_MR_CC_FINDINGS);
        const std::string summary = current->getStateInfoString();
        close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_WARNING, summary);
        return true;
    }
    case MR_EVT_LD_CC_DOUBLE_MEDIUM_ERRORS:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_DOUBLE_MEDIUM_ERRORS");
        noteFinding(*current, *detail);
        current->setUncorrectableMultipleMediumErrorCount(current->getUncorrectableMultipleMediumErrorCount() + 1);
        logStates(disk, before, *current);
        return true;
    case MR_EVT_LD_CC_FAIL:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_FAIL");
        current->setCCResult(VEK_MR_CC_FAILED);
        close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_FAILED, "");
        return true;
    case MR_EVT_LD_CC_FAILED_UNCOR: {
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_FAILED_UNCOR");
        const std::string summary = current->getCCFaultDetected() ? current->getStateInfoString() : "";
        current->setCCResult(VEK_MR_CC_FAILED_UNCORRECTABLE);
        close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_FAILED, summary);
        return true;
    }
    case MR_EVT_LD_CC_INCONSISTENT_PARITY:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_INCONSISTENT_PARITY");
        noteFinding(*current, *detail);
        current->setInconsistentParityCount(current->getInconsistentParityCount() + 1);
        logStates(disk, before, *current);
        return true;
    case MR_EVT_LD_CC_INCONSISTENT_PARITY_LOGGING_DISABLED:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_INCONSISTENT_PARITY_LOGGING_DISABLED");
        current->setTooManyInconsistentParityDetected(true);
        return true;
    case MR_EVT_LD_CC_OWNERSHIP_LOSS_ABORT:
        VEK_LOG_DEBUG(TAG, "Inside MR_EVT_LD_CC_OWNERSHIP_LOSS_ABORT");
        current->setCCResult(VEK_MR_CC_ABORTED);
        close(controller, disk, *current, previous, *detail, IELEVENT::IEL_CONSISTENCY_CHECK_WARNING, "");
        return true;
    default:
        if (kQuietCodes.count(detail->code) != 0) {
            VEK_LOG_DEBUG(TAG, "No event achieved");
            return true;
        }
        VEK_LOG_DEBUG(TAG, "default case");
        return false;
    }
}
