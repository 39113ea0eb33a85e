#!/bin/sh
# The first process of the guest: tests drives that cannot read or write all that they hold, by the
# library and by other tools, and a volume of a RAID controller.
. /etc/guest
load_drivers

all_there() {
  [ -b /dev/nvme0n1 ] && [ "$(ls -d /sys/class/block/sd? 2>/dev/null | wc -l)" = 6 ] &&
    [ "$(ls -d /sys/class/scsi_generic/sg* 2>/dev/null | wc -l)" = 6 ]
}
wait_until all_there

disk_of() { echo /dev/"$(basename /sys/class/scsi_generic/"${1#/dev/}"/device/block/*)"; }
tool() { /opt/$width/morvussd "$@"; }
exchange() { /opt/$width/exchange /opt/$width/libMorvu.SSDFeatures.so.1.2.0 "$@"; }

# ---- Read scans ----

# Bad from an address on, of blocks of a size; 8 blocks behind it all is well again.
try_scans() {  # NAME NODE DISK BLOCK-SIZE FIRST-BAD [SERIAL]
  local name=$1 node=$2 disk=$3 size=$4 bad=$5
  keep "$name.dd" dd if="$disk" of=/dev/null bs="$size" iflag=direct
  keep "$name.badblocks" badblocks -b 4096 "$disk"
  [ "$node" = "$disk" ] || keep "$name.sg_dd" sg_dd if="$node" of=/dev/null bs="$size" bpt=1
  for width in 64 32; do
    keep "$width.$name.full" tool -drive_path "$node" -read_scan full
    keep "$width.$name.before" tool -drive_path "$node" -read_scan 1 "$bad"
    keep "$width.$name.at" tool -drive_path "$node" -read_scan "$bad" 18446744073709551615
    keep "$width.$name.behind" tool -drive_path "$node" -read_scan $((bad + 8)) 18446744073709551615
    keep "$width.$name.fast" tool -drive_path "$node" -read_scan
    [ -z "$6" ] || keep "$width.$name.xml" exchange "$(full_scan_of "$6")"
  done
}
full_scan_of() {  # SERIAL
  printf '<Message cimClass="MorvuSSD" scan="True"><Object cimClass="MorvuSSD">'
  printf '<Property name="SerialNumber" key="True">%s</Property></Object>' "$1"
  printf '<Object type="method" name="ReadScan"><Property name="full">True</Property></Object>'
  printf '</Message>'
}

bad_sata=$(generic_of BADREAD1)
try_scans sata "$bad_sata" "$(disk_of "$bad_sata")" 512 $bad_sata_lba BADREAD1
try_scans nvme /dev/nvme0n1 /dev/nvme0n1 512 $bad_nvme_lba "$nvme_serial"
for size in 512 4096; do
  # opts 2: medium errors, with their address in the sense's INFORMATION.
  insmod /modules/scsi_debug.ko dev_size_mb=64 sector_size=$size opts=2 ndelay=1000 \
    medium_error_start=$bad_debug_lba medium_error_count=8 \
    inq_vendor="$sas_vendor" inq_product="$sas_model" inq_rev="$sas_firmware"
  debug_is_there() {
    debug=$(echo /sys/bus/pseudo/drivers/scsi_debug/adapter*/host*/target*/*/scsi_generic/sg*)
    [ -e "$debug" ] && [ -b "$(disk_of "$(basename "$debug")")" ]
  }
  wait_until debug_is_there
  debug=/dev/$(basename "$debug")
  try_scans sas$size "$debug" "$(disk_of "$debug")" $size $bad_debug_lba
  rmmod scsi_debug
done

# ---- A volume of a RAID controller ----

raid=$(echo /sys/bus/pci/drivers/megaraid_sas/0*/host*/target*/*/scsi_generic/sg*)
volume=/dev/$(basename "$raid")
mknod /dev/megaraid_sas_ioctl_node c "$(awk '/megaraid_sas_ioctl/ {print $1}' /proc/devices)" 0
printf '{"node": "%s", "disk": "%s", "pci": "%s"}\n' "$volume" "$(disk_of "$volume")" \
  "$(cat "${raid%/host*}"/vendor "${raid%/host*}"/device | tr '\n' ' ')" >/results/volume
keep volume.smartctl.json smartctl -j -i -d megaraid,0 "$(disk_of "$volume")"
for width in 64 32; do
  # The library stands beside the program; what answers for it is put before the program.
  volume_tool() {
    MORVU_VOLUME=${volume#/dev/sg} LD_PRELOAD=/opt/$width/libvolume_of_node.so \
      /opt/$width/morvussd -lsi "$@"
  }
  keep $width.volume.list volume_tool -drive_list /results/$width.volume.csv
  keep $width.volume.disk volume_tool -drive_path "$volume"
  keep $width.volume.member volume_tool -drive_path LSI_0_1
done

# ---- Data integrity ----

make_files() {  # TYPE PARTITION
  case $1 in
    ext4) mke2fs -q -t ext4 -m 0 "$2" ;;
    vfat) mkfs.vfat -F 32 "$2" ;;
    xfs) mkfs.xfs -q -f "$2" ;;
  esac
}
# What a run leaves: files, mounts, and what the kernel had to put in order.
look_behind() {  # NAME TYPE PARTITION
  keep "$1.mounts" cat /proc/mounts
  mount -t "$2" "$3" /data
  keep "$1.files" ls -A /data
  umount /data
}
mkdir -p /data
good=$(generic_of GOOD0001)
part=$(disk_of "$good")1
for run in ext4:fast xfs:full vfat:full; do
  type=${run%:*}
  make_files $type "$part" >/results/made.$type 2>&1
  mount -t $type "$part" /data
  echo kept >/data/own
  umount /data
  for width in 64 32; do
    keep $width.integrity.$type tool -drive_path "$good" -data_integrity "${run#*:}"
    look_behind $width.integrity.$type $type "$part"
  done
done

for faulty in BADFILE1:reads BADFILE2:writes; do
  node=$(generic_of "${faulty%:*}")
  name=integrity.${faulty#*:}
  make_files ext4 "$(disk_of "$node")1" >/results/made.$name 2>&1
  for width in 64 32; do
    keep $width.$name tool -drive_path "$node" -data_integrity
    look_behind $width.$name ext4 "$(disk_of "$node")1"
  done
done

# A run on a slow drive is halted once it has written, its data change beneath it, and it goes on.
# Another one is killed there.
slow=$(generic_of SLOW0001)
slow_part=$(disk_of "$slow")1
make_files ext4 "$slow_part" >/results/made.slow 2>&1
halt_run() {
  has_written() {
    file=$(ls /mnt/MorvuTestFolder/*Morvu_Integrity_File_0* 2>/dev/null) &&
      [ "$(stat -c %s "$file")" -ge 33554432 ]
  }
  # The run ends early where it fails.
  until has_written || ! kill -0 "$run" 2>/dev/null; do sleep 0.2; done
  kill -STOP "$run"
  sync
}
for width in 64 32; do
  # A child of its own, not a function's.
  /opt/$width/morvussd -drive_path "$slow" -data_integrity >/results/$width.integrity.changed 2>&1 &
  run=$!
  halt_run
  keep $width.integrity.extents filefrag -e -b512 "$file"
  first=$(awk '$1 == "0:" {sub("[.][.].*", "", $4); print $4}' /results/$width.integrity.extents)
  printf changed | dd of="$slow_part" bs=1 seek=$((first * 512 + 20971520 + 100)) conv=notrunc,fsync \
    2>/results/$width.integrity.changed.dd
  kill -CONT "$run"
  wait "$run"
  echo $? >/results/$width.integrity.changed.exit
  look_behind $width.integrity.changed ext4 "$slow_part"

  /opt/$width/morvussd -drive_path "$slow" -data_integrity >/results/$width.integrity.killed 2>&1 &
  run=$!
  halt_run
  keep $width.integrity.killed.left ls -A /mnt/MorvuTestFolder
  kill -KILL "$run"
  wait "$run"
  keep $width.integrity.after tool -drive_path "$slow" -data_integrity
  look_behind $width.integrity.after ext4 "$slow_part"

  # Ctrl-C in a scan that would take half a minute.
  keep $width.canceled timeout -s INT 3 /opt/$width/morvussd -drive_path "$slow" -read_scan full
done
end_guest
