// Taking a form with files, multipart/form-data of RFC 7578, from standard input through one fixed buffer.
#pragma once

#include "lib/hash.h"

enum UploadStatus : int {
    kUploadGood = 1,
    kUploadNoAccess = -1,
    kUploadNoSpace = -2,
    kUploadReadOnly = -3,
    kUploadIo = -4,
    kUploadSize = -5,   // CONTENT_LENGTH is not what came
    kUploadLength = -6, // no or an empty CONTENT_LENGTH, or 0
    kUploadNoDestination = -8,
    kUploadFailed = -9, // not a form, or any other failure
    kUploadNameTooLong = -10,
    kUploadQuota = -11,
    kUploadFileTooLarge = -15,
};

// Reads the form that the environment describes.
//   params   receives the text fields, and of files the names that the client gave
//   files    receives for each file <name>_tmp, the path where it was stored
//   destDir  where files go, as upload_tmp.<pid><number>
// Each file is flushed to the disk; one that did not come whole is removed. Where the form is refused, what the client
// still sends is read and dropped, so that it gets to read the answer. Returns an UploadStatus; details are logged.
[[nodiscard]] int NorvUploadParse(PNLIBSZHASH *params, PNLIBSZHASH *files, const char *destDir);
