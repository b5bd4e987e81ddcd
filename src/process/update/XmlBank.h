#pragma once

#include <string>

namespace RMUP::Process {

/// The configuration bank of a partition, which the XML archive is unpacked into while the other partition runs. The
/// bank's calibration directory is kept as its one backup.
///
/// What the device has measured with must not be lost to what an archive brought: an update that runs again before the
/// device has restarted finds the calibration that the first one unpacked, and the backup holds the one that ran. Only
/// the partition that runs tells the two apart, and the service may be started any number of times in between. So a
/// file says that a bank's calibration came from an archive and has not run yet. It goes when the bank's partition is
/// seen running: at the start of the service, or by an update of the other bank.
struct XmlBank {
    const char* directory;
    const char* calibration;
    const char* removeBackup;     ///< shell command
    const char* keepCalibration;  ///< shell command
    const char* notRun;           ///< the file that says so

    /// The bank of the partition that is not running.
    static const XmlBank& Target();

    /// Called at the start of the service.
    static void NoteRunning();

    /// Makes the calibration directory the backup, if there is one that has run, and unpacks the archive. Whether the
    /// archive is any good is not looked at. False when the file above could not be made; a second update before the
    /// restart will not know then.
    [[nodiscard]] bool Unpack(const std::string& archive) const;
};

}  // namespace RMUP::Process
