/* What a RAID controller's library answers of a controller with one volume of one drive, which is
 * /dev/sgN of the environment's MORVU_VOLUME. Put before a program; the tagged library of the
 * simulator finds it.
 */
#include <fcntl.h>
#include <scsi/sg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

struct request {
  uint8_t group, command;
  uint16_t unused;
  uint32_t controller;
  uint16_t volume, device;
  uint32_t index, more[3], length;
  uint8_t* block;
};

enum { DEVICE = 1, VOLUME = 0 };

static int get_volume(void) {
  const char* number = getenv("MORVU_VOLUME");
  return number == NULL ? -1 : atoi(number);
}

static void put16(uint8_t* block, unsigned offset, unsigned value) {
  block[offset] = (uint8_t)value;
  block[offset + 1] = (uint8_t)(value >> 8);
}

static int send_scsi(uint8_t* block, uint32_t size) {
  char name[32];
  struct sg_io_hdr header = {.interface_id = 'S',
                             .cmd_len = block[3],
                             .mx_sb_len = 32,
                             .dxfer_len = size - 64,
                             .cmdp = block + 12,
                             .sbp = block + 28,
                             .dxferp = block + 64,
                             .timeout = 30000};
  header.dxfer_direction = block[2] == 0   ? SG_DXFER_NONE
                           : block[2] == 1 ? SG_DXFER_TO_DEV
                                           : SG_DXFER_FROM_DEV;
  snprintf(name, sizeof name, "/dev/sg%d", get_volume());
  int node = open(name, O_RDWR);
  int sent = node < 0 ? -1 : ioctl(node, SG_IO, &header);
  if (node >= 0) close(node);
  return sent == 0 && header.host_status == 0 && (header.status & ~2) == 0 ? 0 : 1;
}

__attribute__((visibility("default"))) int morvu_simulator_adapter_call(struct request* request) {
  uint8_t* block = request->block;
  if (get_volume() < 0) return 1;
  switch (request->group << 8 | request->command) {
    case 0x0000:
      put16(block, 0, 1);
      return 0;
    case 0x0009:
      return 0;
    case 0x0003:
      memset(block, 0, 6);
      put16(block, 0, 1);
      return 0;
    case 0x0104:
      put16(block, 0, 1);
      put16(block, 8, DEVICE);
      return 0;
    case 0x010C:
      put16(block, 0, 1);
      put16(block, 4, DEVICE);
      put16(block, 6, 1);
      put16(block, 8, VOLUME);
      return 0;
    case 0x030B:
      put16(block, 0, 1);
      put16(block, 2, (unsigned)get_volume());
      put16(block, 4, DEVICE);
      return 0;
    case 0x0601:
      return send_scsi(block, request->length);
    default:
      return 1;
  }
}
