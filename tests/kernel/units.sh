#!/bin/sh
# The first process of the guest loads the drivers and leaves the rest to systemd, which calls this
# again to see what the units do.
. /etc/guest
if [ $$ = 1 ]; then
  load_drivers
  # A root of its own, as from a disk: mount namespaces are made of it.
  root=/mnt
  mount -t tmpfs root $root
  for entry in /*; do
    case $entry in
      /dev | /proc | /sys | $root) mkdir $root$entry ;;
      *) cp -a "$entry" $root ;;
    esac
  done
  exec switch_root $root /lib/systemd/systemd
fi

readonly folder=/var/lib/prometheus/node-exporter
readonly file=$folder/morvussd.prom
readonly service=morvussd-metrics.service timer=morvussd-metrics.timer

insmod /modules/scsi_debug.ko dev_size_mb=64 \
  inq_vendor="$sas_vendor" inq_product="$sas_model" inq_rev="$sas_firmware"
all_there() {
  [ -b /dev/nvme0n1 ] && [ "$(ls -d /sys/class/block/sd? 2>/dev/null | wc -l)" = 2 ] &&
    [ "$(ls -d /sys/class/scsi_generic/sg* 2>/dev/null | wc -l)" = 2 ]
}
wait_until all_there
sata=/dev/$(basename /sys/class/scsi_generic/"$(basename "$(generic_of "$sata_serial")")"/device/block/*)

written() { mv $file "/results/$1"; }
change_service() {  # LINES
  mkdir -p /etc/systemd/system/$service.d
  printf '[Service]\n%s\n' "$1" >/etc/systemd/system/$service.d/change.conf
  systemctl daemon-reload
}

for width in 64 32; do
  [ -d /opt/$width ] || continue
  cp /opt/$width/units/* /etc/systemd/system
  systemctl daemon-reload
  rm -rf $folder
  keep $width.nowhere systemctl start $service
  keep $width.nowhere.folder ls $folder

  mkdir -p $folder
  keep $width.bare.prom /opt/$width/sbin/morvussd -metrics
  # STANDBY IMMEDIATE before and behind the service's commands to the drive.
  keep $width.asleep hdparm -y "$sata"
  keep $width.service systemctl start $service
  keep $width.awake hdparm -y "$sata"
  keep $width.mode stat -c '%a %U' $file
  keep $width.folder ls -A $folder
  written $width.prom
  # Another program works on it.
  keep $width.used flock "$sata" systemctl start $service
  written $width.used.prom

  # A call that the filter refuses ends the tool.
  change_service 'SystemCallErrorNumber='
  keep $width.filter systemctl start $service
  written $width.filter.prom
  # What the tool may not do, a shell in its place is refused.
  change_service "ExecStart=
ExecStart=/bin/sh /etc/probe $folder $sata"
  keep $width.probe systemctl start $service
  mv $folder/probe /results/$width.probed
  rm -r /etc/systemd/system/$service.d
  keep $width.journal journalctl -u $service -o cat
done
sh /etc/probe /tmp "$sata"
mv /tmp/probe /results/probed

# The timer by its own times, then by one that is near.
systemctl daemon-reload
keep timer systemctl start $timer
keep timer.before systemctl show $timer
mkdir -p /etc/systemd/system/$timer.d
{
  printf '[Timer]\nOnBootSec=\nOnBootSec=1s\nRandomizedDelaySec=0\nAccuracySec=1s\n'
  grep ^OnUnitActiveSec= /etc/systemd/system/$timer  # an empty OnBootSec= took it away
} >/etc/systemd/system/$timer.d/near.conf
systemctl daemon-reload
keep timer.near systemctl restart $timer
is_written() { [ -s $file ]; }
wait_until is_written
waits_again() { [ "$(systemctl show -P SubState $timer)" = waiting ]; }
wait_until waits_again
keep timer.behind systemctl show $timer
written timer.prom
keep journal journalctl -b
end_guest
