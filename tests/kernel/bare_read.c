/* Reads LBA 0 of a SATA drive once, by READ DMA, and is interrupted by a signal meanwhile: what
 * becomes of a command that nobody shields.
 *
 *   bare_read NODE
 */
#include <fcntl.h>
#include <scsi/sg.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "interrupts.h"

int main(int argc, char** argv) {
  unsigned char data[512], sense[32];
  /* ATA PASS-THROUGH (16), SAT-3: DMA, from the device, one block of 512 bytes in Count. */
  unsigned char cdb[16] = {0x85, 6 << 1, 0x0E, [6] = 1, [13] = 0x40, [14] = 0xC8};
  struct sg_io_hdr header = {.interface_id = 'S',
                             .dxfer_direction = SG_DXFER_FROM_DEV,
                             .cmd_len = sizeof cdb,
                             .mx_sb_len = sizeof sense,
                             .dxfer_len = sizeof data,
                             .dxferp = data,
                             .cmdp = cdb,
                             .sbp = sense,
                             .timeout = 60000};
  int node = argc == 2 ? open(argv[1], O_RDWR) : -1;
  if (node < 0 || interrupt_process(0) != 0) return 2;
  if (ioctl(node, SG_IO, &header) != 0) return 1;
  close(node);
  return header.status == 0 ? 0 : 1;
}
