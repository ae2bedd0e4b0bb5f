// How an install tells how far it is. Stages and codes are those that the web page knows.
#pragma once

enum InstallStage : int {
    kStageNetSetting = 1,
    kStageFormat = 2, // 3 and 4 as well
    kStageInstall = 5,
    kStageFinish = 8,
    kStageCheckBoot = 10,
    kStageFailed = 11,
    kStageDownloadFeed = 12,
    kStageDownload = 13,
    kStageUpload = 14,
};

// Receives a stage with code 0, or the code of what went wrong in it; `value` counts within a stage, mostly 0.
using InstallProgress = void (*)(int stage, unsigned code, unsigned long value);

// Codes of what went wrong.
enum InstallCode : unsigned {
    kCodeVersion = 10, // the patch's updater refuses
    kCodeModel = 12,   // the patch is for another model
    kCodePatch = 13,   // the patch is no good
    kCodeNoSpace = 16,
    kCodeVolume = 21, // the volume cannot be used
    kCodeFormat = 35,
    kCodeLock = 41, // another install runs
    kCodeDownload = 46,
    kCodeMemoryTest = 47, // a memory test runs
    kCodeUpload = 54,
    kCodeLicence = 65,
    kCodePartitionVersion = 70, // the disks' layout is too old for the patch
};

// What the web page polls: a header and a JSON body, rewritten whole by each step.
inline constexpr char kInstallProgressPath[] = "/tmp/install.progress";
