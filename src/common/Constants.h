#pragma once

/// The device's address on the USB network link; reported to a PC that is attached through it.
inline constexpr char kUSBDeviceAddress[] = "1.1.40.1";

/// The fixed address of a PC on the USB network link.
inline constexpr char kUSBPCAddress[] = "1.1.40.2";

/// Where a USB stick is mounted for updates.
inline constexpr char kUSBMountPoint[] = "/mnt/usb/";

/// The file in which ZELApp names the result to send to the PC.
inline constexpr char kSendToPCFile[] = "/tmp/sendtopc.data";

/// The log channel that every class writes to.
inline constexpr char kLogName[] = "[RMUP]";
