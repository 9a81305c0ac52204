/* Plays raw audio (16-bit stereo, 44100 Hz) through buffers of 512 frames, as a sound card asks for
 * them, faster and faster:  player < in.raw > out.raw */
#include <stdio.h>
#include <velora/vsp_c.h>

static int64_t read_frames(void* file, void* buffer, int64_t frames)
{
    return (int64_t)fread(buffer, 4, (size_t)frames, (FILE*)file);
}

int main(void)
{
    static int16_t out[512][2];
    velora_stream* stream;
    velora_options options = VELORA_OPTIONS;
    int error = velora_stream_open(&stream, 44100, 2, VELORA_INT16, &options);
    double speed = 0.5;
    int64_t got = 512;
    while (!error && got == 512) {
        error = velora_stream_set_speed(stream, speed < 2.0 ? speed += 0.001 : speed);
        got = velora_stream_pull(stream, out, 512, read_frames, stdin);
        fwrite(out, 4, (size_t)got, stdout);
        fprintf(stderr, "\r%.3f s",
                (double)velora_stream_media_frame_of(stream, velora_stream_output_frames(stream)) /
                    44100.0);
    }
    if (error)
        fprintf(stderr, "%s\n", velora_error_text(error));
    velora_stream_destroy(stream);
    return error ? 1 : 0;
}
