/* Reads a SATA drive from its second sector on by READ DMA EXT, 256 sectors at a time, as a full
 * read scan does, and does nothing else.
 *
 *   bare_scan NODE SECTORS
 */
#include <fcntl.h>
#include <scsi/sg.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { SECTOR = 512, MOST = 256 };

static int read_sectors(int node, uint64_t lba, unsigned count, void* data) {
  unsigned char sense[32];
  /* ATA PASS-THROUGH (16), SAT-3: DMA, 48 bits, from the device, blocks of 512 bytes in Count. */
  unsigned char cdb[16] = {0x85, 6 << 1 | 1, 0x0E, [13] = 0x40, [14] = 0x25};
  struct sg_io_hdr header = {.interface_id = 'S',
                             .dxfer_direction = SG_DXFER_FROM_DEV,
                             .cmd_len = sizeof cdb,
                             .mx_sb_len = sizeof sense,
                             .dxfer_len = count * SECTOR,
                             .dxferp = data,
                             .cmdp = cdb,
                             .sbp = sense,
                             .timeout = 30000};
  cdb[5] = (unsigned char)(count >> 8);
  cdb[6] = (unsigned char)count;
  for (unsigned i = 0; i < 3; ++i) {
    cdb[8 + 2 * i] = (unsigned char)(lba >> 8 * i);
    cdb[7 + 2 * i] = (unsigned char)(lba >> (24 + 8 * i));
  }
  return ioctl(node, SG_IO, &header) == 0 && header.status == 0 && header.host_status == 0;
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int node = open(argv[1], O_RDWR);
  const uint64_t end = strtoull(argv[2], NULL, 10);
  void* data = NULL;
  if (node < 0 || posix_memalign(&data, 4096, MOST * SECTOR) != 0) return 2;
  if (!read_sectors(node, 0, 1, data)) return 1;
  for (uint64_t lba = 1; lba < end; lba += MOST) {
    const unsigned count = end - lba < MOST ? (unsigned)(end - lba) : MOST;
    if (!read_sectors(node, lba, count, data)) return 1;
  }
  free(data);
  close(node);
  return 0;
}
