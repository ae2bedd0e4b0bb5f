// Between standard input and the file that an upload becomes: the one buffer of an upload, and the steps on it.
#pragma once

#include <cstdint>
#include <string_view>

struct UploadStats {
    uint64_t done, total; // bytes read so far, bytes that were promised
    int status;           // UploadStatus
};

struct UploadBuffer {
    char data[65536];
    int capacity;
    char *cursor; // of what is there and not yet used
    int available;
    char boundary[256]; // "--<boundary>"
    int boundary_length;
    char delimiter[256]; // "\n--<boundary>"
    int delimiter_length;
    UploadStats *stats;
    void (*progress)(uint64_t done, uint64_t total); // called after each write; NULL for nobody
    bool input_is_over;                              // a fill has brought nothing: no later one waits
};

// Makes an empty buffer. Returns false when the boundary is too long for it.
[[nodiscard]] bool upload_buffer_start(UploadBuffer *buffer, std::string_view boundary, UploadStats *stats);

// What is there, and using so many bytes of it.
[[nodiscard]] inline std::string_view upload_view(const UploadBuffer &buffer)
{
    return {buffer.cursor, static_cast<size_t>(buffer.available)};
}
inline void upload_consume(UploadBuffer *buffer, size_t bytes)
{
    buffer->cursor += bytes;
    buffer->available -= static_cast<int>(bytes);
}

// Waits so long for standard input. Returns false when nothing came and its end did not either.
[[nodiscard]] bool upload_input_wait(int seconds);

// Moves what is there to the front and reads on until the buffer is full, a newline has come, or nothing comes for 30
// seconds. Returns the bytes added.
int upload_fill(UploadBuffer *buffer);

// Takes a line without its end; all of a full buffer counts as one. `line` ends at the first NUL and lives until the
// next fill. Returns false when no line comes.
[[nodiscard]] bool upload_line_read(UploadBuffer *buffer, std::string_view *line);

// Takes what comes before the delimiter, the CR or LF in front of it left out, into a new file, and the line's end
// behind it. What goes wrong is logged and stands in the status; the file is then gone. Returns whether all is well.
[[nodiscard]] bool upload_file_take(UploadBuffer *buffer, const char *path);
