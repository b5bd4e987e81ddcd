#include "process/update/XmlBank.h"

#include <fcntl.h>
#include <unistd.h>

#include "common/CDescriptor.h"
#include "common/Shell.h"
#include "platform/upgrade.h"

namespace RMUP::Process {

namespace {

constexpr int kFirstPartition = 0;

constexpr XmlBank kFirstBank = {
    "/data/xml_bank/1st", "/data/xml_bank/1st/chip_cal", "rm -rf /data/xml_bank/1st/chip_cal_bak",
    "mv /data/xml_bank/1st/chip_cal /data/xml_bank/1st/chip_cal_bak", "/data/xml_bank/.1st_not_run"};
constexpr XmlBank kSecondBank = {
    "/data/xml_bank/2nd", "/data/xml_bank/2nd/chip_cal", "rm -rf /data/xml_bank/2nd/chip_cal_bak",
    "mv /data/xml_bank/2nd/chip_cal /data/xml_bank/2nd/chip_cal_bak", "/data/xml_bank/.2nd_not_run"};

bool Exists(const char* path) {
    return access(path, F_OK) == 0;
}

/// On the device at once: the power may go in the middle of unpacking.
bool MakeFile(const char* path) {
    const CDescriptor file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    return file.IsOpen() && fsync(file.Get()) == 0;
}

}  // namespace

const XmlBank& XmlBank::Target() {
    const bool first = getActiveIndex() == kFirstPartition;
    unlink((first ? kFirstBank : kSecondBank).notRun);
    return first ? kSecondBank : kFirstBank;
}

void XmlBank::NoteRunning() {
    // The device is only asked when it matters.
    if (Exists(kFirstBank.notRun) || Exists(kSecondBank.notRun)) {
        (void)Target();
    }
}

bool XmlBank::Unpack(const std::string& archive) const {
    if (Exists(calibration) && !Exists(notRun)) {
        RunShell(removeBackup);
        RunShell(keepCalibration);
    }
    const bool noted = MakeFile(notRun);
    RunShell(("unzip -o " + archive + " -d " + directory).c_str());
    if (!Exists(calibration)) {
        unlink(notRun);
    }
    return noted;
}

}  // namespace RMUP::Process
