/* Reads a SATA drive of fewer than 2^28 sectors by READ DMA, 256 at a time, by the commands that a
 * full read scan sends, and does nothing else.
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
  /* ATA PASS-THROUGH (12), SAT-3: DMA, from the device, blocks of 512 bytes in Count, and the
   * registers are wanted back. */
  unsigned char cdb[12] = {0xA1,
                           6 << 1,
                           0x2E,
                           0,
                           (unsigned char)count,
                           (unsigned char)lba,
                           (unsigned char)(lba >> 8),
                           (unsigned char)(lba >> 16),
                           (unsigned char)(0x40 | lba >> 24),
                           0xC8};
  struct sg_io_hdr header = {.interface_id = 'S',
                             .dxfer_direction = SG_DXFER_FROM_DEV,
                             .cmd_len = sizeof cdb,
                             .mx_sb_len = sizeof sense,
                             .dxfer_len = count * SECTOR,
                             .dxferp = data,
                             .cmdp = cdb,
                             .sbp = sense,
                             .timeout = 30000};
  if (ioctl(node, SG_IO, &header) != 0 || header.host_status != 0) return 0;
  /* CHECK CONDITION with ATA PASS-THROUGH INFORMATION AVAILABLE, and no error in Status. */
  return header.status == 2 && sense[0] == 0x72 && sense[3] == 0x1D && (sense[21] & 1) == 0;
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
