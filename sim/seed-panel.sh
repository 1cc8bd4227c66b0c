#!/bin/sh
# Seeds a simulated panel with a small installed runtime 1.1.0, a project and two services, and
# the identity its gate (kelgate) knows: the model and the installed version, no key.
set -eu
panel=$1
app="$panel/usr/vorn_app"
mkdir -p "$app/config" "$app/project/screens" "$app/kelinfo" "$panel/etc/systemd/system/multi-user.target.wants" "$panel/tmp"
printf '#!/bin/sh\necho "HMI runtime 1.1.0"\n' > "$app/vorn_app"
printf 'old data logger\n' > "$app/kellogger"
printf 'ui library 1.1.0\n' > "$app/libvornui.so.1"
printf 'start image\n' > "$app/startBarLoadGnd.bmp"
printf 'bright=60\n' > "$app/config/panel.conf"
printf 'left over from 1.0\n' > "$app/config/obsolete.conf"
printf 'MODEL=KEL-700\nSERIAL=FIELD-4711\n' > "$app/kelinfo/panel.id"
printf '[project]\nname=Packaging line 2\n' > "$app/project/main.pro"
printf 'screen=1\n' > "$app/project/screens/screen1.scr"
chmod 755 "$app/vorn_app"
units="$panel/etc/systemd/system"
printf '[Service]\nExecStart=/usr/vorn_app/vorn_app\n' > "$units/usr_vorn_app.service"
ln -sf /etc/systemd/system/usr_vorn_app.service "$units/multi-user.target.wants/usr_vorn_app.service"
gate="$panel/etc/kelgate"
mkdir -p "$gate/keys" "$panel/var/lib/kelgate"
[ -e "$gate/model" ] || printf 'KEL-700\n' > "$gate/model"
[ -e "$panel/var/lib/kelgate/version" ] || printf '1.1.0\n' > "$panel/var/lib/kelgate/version"
