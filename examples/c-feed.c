// SPDX-License-Identifier: Apache-2.0

// The library in C, without a window: c-feed FILE|URL SECONDS PICTURE.ppm
//
// Plays a clip until its picture at a time is due and writes that. A program with a loop of its own
// polls the descriptor there; the rest stays as it is.

#include <ZaffoPlayback/zaffo.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

struct feed {
  double seconds;
  const char* path;
  zaffo_player* player;
  zaffo_output* output;
  bool is_over;
  int status;
};

static void end(struct feed* feed, int status) {
  feed->is_over = true;
  feed->status = status;
}

static bool write_ppm(const char* path, const uint8_t* bgra, int width, int height) {
  FILE* file = fopen(path, "wb");
  if (!file) return false;
  fprintf(file, "P6\n%d %d\n255\n", width, height);
  for (long i = 0; i < (long)width * height; ++i) {
    const uint8_t rgb[3] = {bgra[4 * i + 2], bgra[4 * i + 1], bgra[4 * i]};
    fwrite(rgb, 1, sizeof rgb, file);
  }
  const bool is_whole = !ferror(file);
  return fclose(file) == 0 && is_whole;
}

static bool save(const zaffo_picture* picture, const char* path) {
  const int width = zaffo_picture_width(picture), height = zaffo_picture_height(picture);
  uint8_t* bgra = malloc((size_t)4 * (size_t)width * (size_t)height);
  const bool is_saved = bgra &&
                        zaffo_picture_convert(picture, bgra, width, height, (ptrdiff_t)4 * width) &&
                        write_ppm(path, bgra, width, height);
  free(bgra);
  return is_saved;
}

static void picture_changed(void* user) {
  struct feed* feed = user;
  zaffo_picture* picture = zaffo_output_picture(feed->output);
  const double time = zaffo_player_time(feed->player);
  if (picture && time >= feed->seconds) {
    const bool is_saved = save(picture, feed->path);
    if (is_saved) {
      printf("%s: %dx%d, at %.2f s\n", feed->path, zaffo_picture_width(picture),
             zaffo_picture_height(picture), time);
    }
    end(feed, is_saved ? 0 : 1);
  }
  zaffo_picture_release(picture);
}

static void answered(zaffo_player* player, const char* error, void* user) {
  struct feed* feed = user;
  if (!player) {
    fprintf(stderr, "%s\n", error);
    end(feed, 1);
    return;
  }
  feed->player = player;
  feed->output = zaffo_output_attach(player, picture_changed, feed);
}

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: c-feed FILE|URL SECONDS PICTURE.ppm\n");
    return 2;
  }
  struct feed feed = {.seconds = atof(argv[2]), .path = argv[3]};
  zaffo_pool* pool = zaffo_pool_create(0, 0);
  zaffo_request* request = zaffo_play(pool, argv[1], ZAFFO_LOOP_ENDLESS, answered, &feed);
  if (!request) end(&feed, 1);

  while (!feed.is_over) {
    struct pollfd polled = {.fd = zaffo_main_descriptor(), .events = POLLIN};
    if (poll(&polled, 1, -1) == 1) zaffo_main_run();
  }

  zaffo_request_release(request);
  zaffo_output_release(feed.output);
  zaffo_player_set_rate(feed.player, 0);
  zaffo_player_release(feed.player);
  zaffo_pool_release(pool);
  return feed.status;
}
