# Builds the test VM's initramfs; sourced by vm-run.
#
# The image is two concatenated newc cpio archives, both uncompressed: the kernel unpacks
# 40 MB of plain cpio in a blink, while gunzip under emulation costs ~5 s per boot. The base one (busybox, the kernel's
# sound modules, alsa-utils, fluidsynth, the sound font, /init) depends only on this
# machine's packages and on the harness, so it is built once and cached under a key made
# from both. The per-run one holds the files of one run and the command to run.

# The sound modules /init loads, by group: "sound" always, "virmidi" when virtual keyboards
# are asked for, "usb" when USB keyboards are (the dummy host controller, the gadget
# framework with its MIDI function, and the USB audio class driver that takes the gadgets
# as keyboards), "share" when a host directory is shared. Dependencies come from
# modules.dep; snd-hrtimer goes before snd-seq so that the sequencer's default timer exists.
readonly NUV_VM_MODULES="
  sound:soundcore sound:snd sound:snd-timer sound:snd-hrtimer sound:snd-seq-device
  sound:snd-rawmidi sound:snd-seq sound:snd-seq-midi-event sound:snd-seq-midi
  sound:snd-seq-dummy sound:snd-seq-virmidi sound:snd-pcm sound:snd-aloop
  virmidi:snd-virmidi
  usb:configfs usb:libcomposite usb:dummy_hcd usb:usb_f_midi usb:snd-usb-audio
  share:virtio_pci share:9pnet_virtio share:9p"

# The programs every image carries, besides busybox.
readonly NUV_VM_TOOLS="aconnect aseqdump aplaymidi arecordmidi amidi aplay arecord fluidsynth"
readonly NUV_VM_SOUNDFONT=/usr/share/sounds/sf2/TimGM6mb.sf2

# Prints the newest kernel version that has both an image in /boot and its modules.
image_kernel_version() {
  local dir version best=
  for dir in /lib/modules/*/; do
    version=$(basename "$dir")
    [[ -r /boot/vmlinuz-$version && -r $dir/modules.dep ]] || continue
    if [[ -z $best ]] || [[ $(printf '%s\n%s\n' "$best" "$version" | sort -V | tail -n1) == "$version" ]]; then
      best=$version
    fi
  done
  [[ -n $best ]] || return 1
  echo "$best"
}

# Prints "group name file source" for every module to load, in an order that loads each
# module after the ones it needs. "file" is where it goes under /lib/modules/<version>/
# (uncompressed), "source" the host's file. Builtin modules are skipped.
image_module_plan() {
  local dir=/lib/modules/$1
  awk -v wanted="$NUV_VM_MODULES" -v dir="$dir" '
    function modname(path) {
      sub(/.*\//, "", path); sub(/\.ko(\.(xz|zst|gz))?$/, "", path); gsub(/-/, "_", path)
      return path
    }
    function visit(name, group,   parts, count, i, plain) {
      if (name in done) return
      done[name] = 1
      if (!(name in file)) {
        # USB keyboards are optional: a kernel without them gets none (their tests skip).
        if (!(name in builtin) && group != "usb") { print "vm-run: module " name " is not in " dir > "/dev/stderr"; bad = 1 }
        return
      }
      count = split(deps[name], parts, " ")
      for (i = 1; i <= count; i++) visit(parts[i], group)
      plain = file[name]; sub(/\.(xz|zst|gz)$/, "", plain)
      print group, name, plain, dir "/" file[name]
    }
    FNR == NR { builtin[modname($0)] = 1; next }
    {
      path = $1; sub(/:$/, "", path)
      name = modname(path); file[name] = path; deps[name] = ""
      for (i = 2; i <= NF; i++) deps[name] = deps[name] " " modname($i)
    }
    END {
      count = split(wanted, items, " ")
      for (i = 1; i <= count; i++) { split(items[i], gm, ":"); visit(modname(gm[2]), gm[1]) }
      exit bad
    }' "$dir/modules.builtin" "$dir/modules.dep"
}

# Prints the kernel file to boot. qemu boots an uncompressed ELF kernel directly through its
# PVH entry point, which saves the ~10 s that decompressing the (xz) bzImage takes under
# emulation; so when the kernel has that entry point, its ELF image is extracted once into
# the cache. Otherwise the bzImage itself.
image_kernel_file() {
  local version=$1 cache=$2 bzimage=/boot/vmlinuz-$1 elf magic offset
  elf=$cache/vmlinux-$version-$(stat -L -c '%s-%Y' "$bzimage")
  if [[ -s $elf ]]; then echo "$elf"; return 0; fi
  if grep -qx 'CONFIG_PVH=y' "/boot/config-$version" 2>/dev/null; then
    for magic in xz:$'\xfd7zXZ' zstd:$'\x28\xb5\x2f\xfd' gzip:$'\x1f\x8b\x08'; do
      offset=$(LC_ALL=C grep -obUa "${magic#*:}" "$bzimage" | head -n1 | cut -d: -f1)
      [[ -n $offset ]] || continue
      case ${magic%%:*} in
        xz) tail -c +$((offset + 1)) "$bzimage" | xz -dcq --single-stream ;;
        zstd) tail -c +$((offset + 1)) "$bzimage" | zstd -dcq ;;
        gzip) tail -c +$((offset + 1)) "$bzimage" | gzip -dcq ;;
      esac >"$elf.tmp$$" 2>/dev/null || true
      if image_is_elf "$elf.tmp$$"; then
        mv -f "$elf.tmp$$" "$elf"
        echo "$elf"
        return 0
      fi
    done
    rm -f "$elf.tmp$$"
  fi
  echo "$bzimage"
}

image_is_elf() {
  [[ -f $1 && $(head -c 4 "$1" 2>/dev/null | tr -d '\0') == $'\x7fELF' ]]
}

# Prints the shared libraries, the dynamic loader included, that an ELF file loads, as ldd
# resolves them here (so a build tree's RUNPATH is followed). Prints nothing for a static
# or non-ELF file; fails when a library cannot be found.
image_elf_libs() {
  local out
  image_is_elf "$1" || return 0
  out=$(ldd "$1" 2>&1) || return 0
  if grep -q 'not found' <<<"$out"; then
    echo "vm-run: $1 needs libraries that are not found:" >&2
    grep 'not found' <<<"$out" >&2
    return 1
  fi
  awk '$2 == "=>" && $3 ~ /^\// { print $3; next } $1 ~ /^\// { print $1 }' <<<"$out"
}

# Gives a staging root the host's top-level symlinks (/lib -> usr/lib on a merged-/usr
# system), so that host paths copied in land where the guest looks for them. The per-run
# archive needs them too: a plain "lib" directory in it would replace the base's link.
image_root_links() {
  local root=$1 dir target
  for dir in bin sbin lib lib32 lib64 libx32; do
    [[ -L /$dir ]] || continue
    target=$(readlink "/$dir")
    ln -sfn "$target" "$root/$dir"
    [[ $target == /* ]] || target=/$target
    mkdir -p "$root$target"
  done
}

# Copies a host path into the staging root at the same place, recreating each symlink on
# the way to the real file (libfoo.so.1 -> libfoo.so.1.2.3 both exist in the guest).
image_stage_host_path() {
  local root=$1 path=$2 target
  while [[ -L $path ]]; do
    target=$(readlink "$path")
    mkdir -p "$root${path%/*}"
    [[ -e $root$path || -L $root$path ]] || ln -s "$target" "$root$path"
    [[ $target == /* ]] || target=${path%/*}/$target
    path=$target
  done
  [[ -e $root$path ]] && return 0
  mkdir -p "$root${path%/*}"
  cp -pL "$path" "$root$path"
}

# Copies a host file or directory to DEST in the staging root, following symlinks.
image_stage_as() {
  local root=$1 src=$2 dest=$3
  mkdir -p "$root${dest%/*}"
  if [[ -d $src ]]; then
    mkdir -p "$root$dest"
    cp -rpL "$src/." "$root$dest/"
  else
    cp -pL "$src" "$root$dest"
  fi
}

# Stages the libraries of every ELF file under SRC (a file or directory) that the list of
# libraries already in the base image (file LIBS_IN_BASE) does not have.
image_stage_libs_of() {
  local root=$1 src=$2 base_libs=$3 file lib libs
  while IFS= read -r -d '' file; do
    libs=$(image_elf_libs "$file")
    for lib in $libs; do
      grep -qxF "$lib" "$base_libs" || image_stage_host_path "$root" "$lib"
    done
  done < <(find -L "$src" -type f -perm /111 -print0)
}

# Writes the newc cpio of a staging root to stdout.
image_cpio() {
  (cd "$1" && find . -mindepth 1 | cpio --quiet -o -H newc -R 0:0)
}

# Prints a fingerprint of everything the base image is made of: the harness's own files, the
# kernel, the programs it copies and the package database (which any install, upgrade or
# removal of a library rewrites). A harness edit or a package change gives a new image.
image_base_fingerprint() {
  local version=$1 harness_dir=$2 tool
  {
    echo "kernel $version"
    cat "$harness_dir/vm-run" "$harness_dir/image.sh" "$harness_dir"/guest/*
    stat -L -c '%n %s %Y' "/boot/vmlinuz-$version" "/lib/modules/$version/modules.dep" \
      "$NUV_VM_SOUNDFONT" /usr/share/alsa/alsa.conf /var/lib/dpkg/status
    for tool in busybox $NUV_VM_TOOLS; do
      stat -L -c '%n %s %Y' "$(command -v "$tool")"
    done
  } 2>&1 | sha256sum | cut -c1-16
}

# Builds the base archive into OUT and the list of host libraries it carries into
# OUT.libs, staging the files under WORK_DIR. Writes next to OUT first and renames, so
# concurrent runs never see half a file.
image_build_base() {
  local version=$1 harness_dir=$2 out=$3 root=$4/base tool path applet group name file source
  mkdir -p "$root"
  image_root_links "$root"
  mkdir -p "$root"/{proc,sys,dev,tmp,root,out,etc/nuv-vm,usr/share/tallowin}

  : >"$root/libs"
  for tool in busybox $NUV_VM_TOOLS; do
    path=$(command -v "$tool")
    image_stage_host_path "$root" "$path"
    image_elf_libs "$path" >>"$root/libs"
  done
  sort -u "$root/libs" | while IFS= read -r path; do image_stage_host_path "$root" "$path"; done

  # Busybox's applets, where no real program of the same name was copied in.
  busybox --list-full | while IFS= read -r applet; do
    [[ $applet == */* && ! -e $root/$applet && ! -L $root/$applet ]] || continue
    mkdir -p "$root/${applet%/*}"
    ln -s /bin/busybox "$root/$applet"
  done
  [[ -e $root/bin/busybox ]] || image_stage_as "$root" "$(command -v busybox)" /bin/busybox

  image_stage_as "$root" /usr/share/alsa /usr/share/alsa
  image_stage_as "$root" "$NUV_VM_SOUNDFONT" /usr/share/tallowin/DefaultSF.sf2

  image_module_plan "$version" >"$root/plan"
  while read -r group name file source; do
    mkdir -p "$root/lib/modules/$version/${file%/*}"
    case $source in
      *.xz) xz -dc "$source" ;;
      *.zst) zstd -qdc "$source" ;;
      *.gz) gzip -dc "$source" ;;
      *) cat "$source" ;;
    esac >"$root/lib/modules/$version/$file"
    echo "$group $name $file"
  done <"$root/plan" >"$root/etc/nuv-vm/modules"
  # modules.dep for just these, so that busybox modprobe (and the kernel's own module
  # requests through it) works in the guest: a test may unload and reload a card.
  awk 'FNR == NR { have[$3] = 1; next }
    { line = $0; gsub(/\.ko\.(xz|zst|gz)/, ".ko", line); path = line; sub(/:.*/, "", path) }
    path in have { print line }' "$root/plan" "/lib/modules/$version/modules.dep" \
    >"$root/lib/modules/$version/modules.dep"

  cat >"$root/etc/nuv-vm/image.conf" <<EOF
KERNEL_VERSION=$version
BOOT_WAIT=60
EOF
  echo 'root:x:0:0:root:/root:/bin/sh' >"$root/etc/passwd"
  printf 'root:x:0:\naudio:x:29:\n' >"$root/etc/group"
  cp "$harness_dir/guest/asound.conf" "$root/etc/asound.conf"
  cp "$harness_dir/guest/init" "$root/init"
  chmod 755 "$root/init"

  sort -u "$root/libs" >"$out.libs.tmp$$"
  rm -f "$root/libs" "$root/plan"
  image_cpio "$root" >"$out.tmp$$"
  rm -rf "$root"
  mv -f "$out.libs.tmp$$" "$out.libs"
  mv -f "$out.tmp$$" "$out"
}
