#!/bin/sh
# The first process of the guest: asks the library and other tools about drives of each kind.
. /etc/guest
# Its driver is bound at the end.
echo none >/sys/bus/pci/devices/$slow_controller/driver_override
load_drivers

all_there() {
  [ -b /dev/nvme0n2 ] && [ "$(ls -d /sys/class/block/sd? 2>/dev/null | wc -l)" = 3 ] &&
    [ "$(ls -d /sys/class/scsi_generic/sg* 2>/dev/null | wc -l)" = 4 ]
}
wait_until all_there

sata=$(generic_of "$sata_serial")
sas=$(generic_of "$sas_serial")
foreign=$(generic_of "$foreign_serial")
printf '{"sata": "%s", "sas": "%s", "foreign": "%s"}\n' "$sata" "$sas" "$foreign" >/results/nodes
sata_disk=/dev/$(basename /sys/class/scsi_generic/"${sata#/dev/}"/device/block/*)
mke2fs -q -t ext4 "${sata_disk}1"
mkdir -p /data
mount -t ext4 "${sata_disk}1" /data
dd if=/dev/zero of=/data/file bs=1M count=7 2>/dev/null
sync

# The witnesses.
keep lsblk.json lsblk -J -b -o NAME,PATH,SIZE,LOG-SEC,TYPE,MODEL,SERIAL
keep df.txt df -B 1 /data
keep scan.json smartctl --scan -j
for kind in sata sas foreign; do
  eval node=\$$kind
  keep smartctl.$kind.json smartctl -j -i -A "$node"
done
keep smartctl.nvme.json smartctl -j -i /dev/nvme0
keep sas.inquiry sg_inq --raw "$sas"
keep hdparm.txt hdparm -I "$sata"
keep hdparm-max.txt hdparm -N "$sata"
keep nvme.ctrl.json nvme id-ctrl /dev/nvme0 -o json
keep nvme.ns1.json nvme id-ns /dev/nvme0n1 -o json
keep nvme.ns2.json nvme id-ns /dev/nvme0n2 -o json

# The library.
request_of() {  # SERIAL METHOD
  printf '<Message cimClass="MorvuSSD" scan="True"><Object cimClass="MorvuSSD">'
  printf '<Property name="SerialNumber" key="True">%s</Property></Object>' "$1"
  printf '<Object type="method" name="%s"/></Message>' "$2"
}
request_at() {  # INDEX CONTENT
  printf '<Message cimClass="MorvuSSD" scan="True"><Object cimClass="MorvuSSD">'
  printf '<Property name="Index" key="True">%s</Property></Object>%s</Message>' "$1" "$2"
}
features_by_nvme() {
  local id
  for id in 1 2 4 5 7 8 9 10 11; do nvme get-feature /dev/nvme0n1 -f $id; done
}
keep discard.txt cat /sys/class/block/"$(basename "$sata_disk")"/queue/discard_max_bytes
mark_trace() { hdparm -S 250 "$sata" >/dev/null 2>&1; }
for width in 64 32; do
  tool=/opt/$width/morvussd
  exchange="/opt/$width/exchange /opt/$width/libMorvu.SSDFeatures.so.1.2.0"
  keep $width.list.xml $exchange '<Message cimClass="MorvuSSD" scan="True"/>'
  keep $width.devices.xml $exchange '<Message cimClass="Device" scan="True"/>'
  keep $width.smart.xml $exchange "$(request_of "$sata_serial" SmartParser)"
  keep $width.smart-nvme.xml $exchange "$(request_of "$nvme_serial" SmartParser)"
  keep $width.list.txt $tool -drive_list
  keep $width.csv.txt $tool -drive_list /results/$width.list.csv
  for path in "$sata" "$sas" /dev/nvme0n1 /dev/nvme0n2; do
    keep $width.information."$(basename "$path")".txt $tool -drive_path "$path"
  done
  keep $width.smart.txt $tool -drive_serial "$sata_serial" -smart
  keep $width.smart-csv.txt $tool -drive_serial "$sata_serial" -smart /results/$width.smart.csv
  keep $width.smart-nvme.txt $tool -drive_path /dev/nvme0n1 -smart
  keep $width.bad-index.txt $tool -drive_index 99

  # What udev would be woken by.
  keep $width.writers.list /opt/$width/closed_writers $tool -drive_list /results/$width.list.csv
  keep $width.writers.information /opt/$width/closed_writers $tool -drive_path "$sata"
  keep $width.writers.message /opt/$width/closed_writers $exchange \
    '<Message cimClass="MorvuSSD" scan="True"/>'
  keep $width.writers.dd /opt/$width/closed_writers /bin/dd if=/dev/null of="$sata_disk"

  # None of the emulated drives takes an image: the drives must be left as they were.
  for path in "$sata" "$foreign" /dev/nvme0n1; do
    keep $width.firmware."$(basename "$path")".txt \
      $tool -drive_path "$path" -firmware_update /etc/drives -force
  done
  keep $width.after-firmware.json smartctl -j -i "$sata"

  # Settings, as other tools see them before and after a set.
  all_features='<Object type="method" name="GetFeatureNVMe"/>'
  keep $width.features.xml $exchange "$(request_at 0 "$all_features")"
  keep $width.features.theirs features_by_nvme
  keep $width.threshold.txt $tool -drive_path /dev/nvme0n1 -set_temp_threshold $((width / 32 + 63))
  keep $width.features-set.xml $exchange "$(request_at 0 "$all_features")"
  keep $width.features-set.theirs features_by_nvme
  keep $width.scterc.theirs smartctl -l scterc "$sata"
  keep $width.scterc.txt $tool -drive_path "$sata" -error_recovery_control
  keep $width.scterc-set.txt $tool -drive_path "$sata" -error_recovery_control read_timer 70
  keep $width.scttemp.theirs smartctl -l scttempsts "$sata"
  keep $width.temp-interval.txt $tool -drive_path "$sata" -temp_logging_interval
  for state in 0 1; do
    hdparm -W$state "$sata" >/dev/null
    keep $width.wc-state.$state.txt $tool -drive_path "$sata" -wc_state 3
    keep $width.cache.$state.theirs hdparm -W "$sata"
    keep $width.settings.$state.theirs smartctl -g all "$sata"
    keep $width.settings.$state.xml $exchange '<Message cimClass="MorvuSSD" scan="True">
      <Object name="cimProperties"><Property name="DevicePath"/><Property name="WriteCacheEnabled"/>
      <Property name="NativeMaxLBA"/><Property name="SystemTrimEnabled"/></Object></Message>'
  done
  keep $width.max-address.txt $tool -drive_path "$sata" -max_address native -force
  keep $width.hdparm-max.txt hdparm -N "$sata"

  # What the emulated SATA drive cannot do is refused before anything is sent.
  keep $width.secure-erase.txt $tool -drive_path "$sata" -secure_erase -force
  keep $width.sanitize.txt $tool -drive_path "$sata" -sanitize block -force
  keep $width.self-test.txt $tool -drive_path "$sata" -self_test short
  keep $width.self-test.xml $exchange "$(request_of "$sata_serial" DriveSelfTest)"

  # The emulator's trace shows what reaches the drive; a timer command parts the tool's from hdparm's.
  mark_trace
  keep $width.standby.txt $tool -drive_path "$sata" -standby_immediate
  mark_trace
  keep $width.hdparm-standby.txt hdparm -y "$sata"
  keep $width.hdparm-mode.txt hdparm -C "$sata"
  mark_trace

  # The second namespace is erased in the layout that it has, by the tool and by nvme. Its
  # identifier is 3, whatever its node is called; the first one keeps its content.
  yes first | dd of=/dev/nvme0n1 bs=1M count=4 iflag=fullblock 2>/dev/null
  layout=$(nvme id-ns /dev/nvme0n2 | sed -n 's/^flbas *: *//p')
  yes | dd of=/dev/nvme0n2 bs=1M count=4 iflag=fullblock 2>/dev/null
  sync
  keep $width.format.txt $tool -drive_path /dev/nvme0n2 -format 1 0 $((layout & 15)) 0 0 -force
  keep $width.formatted.bin dd if=/dev/nvme0n2 bs=1M count=4
  keep $width.not-formatted.bin dd if=/dev/nvme0n1 bs=1M count=4 iflag=direct
  keep $width.nvme-format.txt nvme format /dev/nvme0 -n 3 -s 1 -l $((layout & 15)) -f
  keep $width.format-too-high.txt $tool -drive_path /dev/nvme0n2 -format 1 0 99 0 0 -force

  # A namespace in use: one partition of it mounted, or the whole of it swapped to, which stands in
  # no table of mounts. The host is refused, the person is told; once free it is formatted, and the
  # kernel shows its partition no more.
  format_message='<Message cimClass="MorvuSSD" scan="True"><Object cimClass="MorvuSSD">
    <Property name="Index" key="True">1</Property></Object><Object type="method" name="Delete"/>
    </Message>'
  mkswap /dev/nvme0n2 >/dev/null
  swapon /dev/nvme0n2
  keep $width.swapped.xml $exchange "$format_message"
  keep $width.swapped.txt $tool -drive_path /dev/nvme0n2 -format 1 0 $((layout & 15)) 0 0
  swapoff /dev/nvme0n2
  {
    dd if=/dev/zero bs=1 count=446
    printf '\0\0\0\0\203\0\0\0\0\001\0\0\0\040\0\0'  # 8192 sectors from the 256th
    dd if=/dev/zero bs=1 count=48
    printf '\125\252'
    dd if=/dev/zero bs=1 count=3584
  } 2>/dev/null | dd of=/dev/nvme0n2 bs=4k 2>/dev/null
  blockdev --rereadpt /dev/nvme0n2
  keep $width.blocks.before ls /sys/class/block
  mke2fs -q -t ext4 /dev/nvme0n2p1
  mkdir -p /held
  mount -t ext4 /dev/nvme0n2p1 /held
  keep $width.mounted.xml $exchange "$format_message"
  keep $width.mounted.txt $tool -drive_path /dev/nvme0n2 -format 1 0 $((layout & 15)) 0 0
  umount /held
  keep $width.format-partition.txt \
    $tool -drive_path /dev/nvme0n2 -format 1 0 $((layout & 15)) 0 0 -force
  keep $width.blocks.after ls /sys/class/block
done
# A file system that was in use when its disk was copied: what a mount would put in order.
# Asked for its partitions, the library writes nothing to it.
part=${sata_disk}2
spare=/dev/$(basename /sys/class/scsi_generic/"${foreign#/dev/}"/device/block/*)
make_dirty() {  # TYPE MEGABYTES
  case $1 in
    ext4) mke2fs -q -t ext4 "$part" "$2M" ;;
    vfat) mkfs.vfat -F 32 "$part" $(($2 * 1024)) ;;
    btrfs) mkfs.btrfs -q -f -b "$2M" "$part" ;;
    xfs) mkfs.xfs -q -f -d "size=$2m" "$part" ;;
  esac
  mkdir -p /dirty
  mount -t "$1" "$part" /dirty
  for name in $(seq 50); do echo "$name" >/dirty/"$name"; done
  dd if=/dev/zero of=/dirty/file bs=1M count=4
  sync
  rm /dirty/1 /dirty/2
  dd if=/dev/zero of=/dirty/synced bs=4k count=1 conv=fsync
  dd if="$part" of="$spare" bs=1M count="$2"
  umount /dirty
  dd if="$spare" of="$part" bs=1M count="$2"
  sync
}
hash_of() { dd if="$part" bs=1M count="$1" iflag=direct 2>/dev/null | md5sum; }
for dirty in ext4:32 vfat:40 btrfs:128 xfs:320; do
  type=${dirty%:*} size=${dirty#*:}
  make_dirty "$type" "$size" >/results/"dirty.$type.made" 2>&1
  echo 3 >/proc/sys/vm/drop_caches
  for width in 64 32; do
    hash_of "$size" >/results/"$width.dirty.$type.before"
    keep "$width.dirty.$type.txt" /opt/$width/morvussd -drive_path "$sata"
    keep "$width.dirty.$type.xml" /opt/$width/exchange \
      /opt/$width/libMorvu.SSDFeatures.so.1.2.0 '<Message cimClass="Device" scan="True"/>'
    hash_of "$size" >/results/"$width.dirty.$type.after"
  done
  # Without the library's care the same question would write: what mount does by itself.
  mount -t "$type" -o ro "$part" /dirty && umount /dirty
  hash_of "$size" >/results/"dirty.$type.mounted"
done
keep nvme.ns2.after.json nvme id-ns /dev/nvme0n2 -o json

# Signals while a command waits for a slow drive. The drive's own trace tells how often it got it.
echo ahci >/sys/bus/pci/devices/$slow_controller/driver_override
echo $slow_controller >/sys/bus/pci/drivers_probe
slow_is_there() {
  slow=$(echo /sys/bus/pci/devices/$slow_controller/ata*/host*/target*/*/scsi_generic/sg*)
  [ -e "$slow" ] && [ -b /dev/"$(basename "${slow%/scsi_generic*}"/block/*)" ]
}
wait_until slow_is_there
slow=/dev/$(basename "$slow")
sleep 5  # the kernel's own first reads
for width in 64 32; do
  mark_trace
  keep $width.bare-read /opt/$width/bare_read "$slow"
  mark_trace
  keep $width.interrupted.xml /opt/$width/exchange \
    /opt/$width/libMorvu.SSDFeatures.so.1.2.0 '<Message cimClass="Device" scan="True"/>' interrupted
  mark_trace
done
end_guest
