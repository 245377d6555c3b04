/* SPDX-License-Identifier: Apache-2.0 */
/* Grabs a frame from the first camera and prints its mean level: grab [RESOURCE_DIRECTORY] */
#include <stdio.h>
#include <tovixapi/tovixapi.h>

int main(int argc, char** argv) {
    _tovix* camera = NULL;
    if (tovix_init(argc > 1 ? argv[1] : NULL) < 0 || tovix_camera_open_any(&camera) < 0 || camera == NULL) return 1;
    if (tovix_enable_streaming(camera) == 0 && tovix_start_streaming(camera) == 0) {
        const int32_t index = tovix_wait_for_capture_to_buffer(camera);
        if (index >= 0) {
            const uint8_t* frame = tovix_get_buffer_address(camera, index);
            const uint32_t size = tovix_get_video_frame_size(camera);
            double sum = 0;
            for (uint32_t i = 0; i < size; ++i)
                sum += frame[i];
            printf("mean level %.1f\n", sum / size);
            tovix_release_buffer(camera, index);
        }
        tovix_stop_streaming(camera);
    }
    return tovix_camera_close(&camera);
}
