#!/bin/sh
# The first process of the guest: what the tests of a drive cost beside bare reads and other tools.
. /etc/guest
load_drivers

all_there() { [ -b /dev/nvme0n2 ] && [ -b /dev/sdb ] && [ -c /dev/sg1 ]; }
wait_until all_there
mkdir -p /data
tool=/opt/64/morvussd
bytes=$((1 << 30))

# "NAME WHO BYTES REAL USER SYSTEM [RATE]", in seconds, a line each run; each is run thrice, in turn
# with the others of its name. A scan tells its rate itself, in MB/s, without the start of the tool.
measure() {  # NAME WHO BYTES COMMAND...
  local name=$1 who=$2 count=$3
  shift 3
  if busybox time -p "$@" >/results/last 2>/results/last.err </dev/null; then
    echo "$name $who $count $(sed -n 's/^\(real\|user\|sys\) *//p' /results/last.err | tr '\n' ' ')" \
      "$(sed -n 's/^Read .* s: \(.*\) MB\/s\.$/\1/p' /results/last)" >>/results/times
  else
    { echo "$name $who failed"; cat /results/last /results/last.err; } >>/results/failures
  fi
}

sata=$(generic_of "$sata_serial")
disk=/dev/$(basename /sys/class/scsi_generic/"${sata#/dev/}"/device/block/*)
for run in 1 2 3; do
  measure scan ours $bytes $tool -drive_path "$sata" -read_scan full
  measure scan loop $bytes /opt/64/bare_scan "$sata" $((bytes / 512))
  measure scan sg_dd $bytes sg_dd if="$sata" of=/dev/null bs=512 bpt=256
  measure scan dd $bytes dd if="$disk" of=/dev/null bs=128k iflag=direct
  measure direct ours $bytes $tool -drive_path /dev/nvme0n1 -read_scan full
  measure direct dd $bytes dd if=/dev/nvme0n1 of=/dev/null bs=128k iflag=direct
  for disks in fast:/dev/nvme0n1 slow:/dev/nvme0n2; do
    name=queue_${disks%:*} node=${disks#*:}
    measure $name ours $bytes /opt/64/queue_reads "$node" $bytes 131072 32
    measure $name fio $bytes fio --name=reads --filename="$node" --rw=read --bs=128k --direct=1 \
      --ioengine=io_uring --iodepth=32 --size=$bytes
  done
done

files=$(generic_of FILES001)
part=/dev/$(basename /sys/class/scsi_generic/"${files#/dev/}"/device/block/*)1
mke2fs -q -t ext4 -m 0 "$part"
cat >/etc/write_and_compare <<'SCRIPT'
# As the test does it: written to the medium, and read from there.
mount -t ext4 "$1" /data && dd if=/dev/zero of=/data/file bs=1M count=$(($2 >> 20)) conv=fsync &&
  echo 3 >/proc/sys/vm/drop_caches && cmp -n "$2" /data/file /dev/zero && rm /data/file
end=$?
umount /data
exit $end
SCRIPT
for run in 1 2 3; do
  measure integrity ours $bytes $tool -drive_path "$files" -data_integrity
  measure integrity dd_cmp $bytes /bin/sh /etc/write_and_compare "$part" $bytes
done
end_guest
