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

# Where the guest's programs and kernel come from: this machine itself (both empty) or, for
# another architecture, a sysroot of that architecture's packages and a directory with its
# kernel in boot/ and its modules in lib/modules/, with the sysroot's library directories
# (set by the architecture's file).
NUV_VM_SYSROOT=${NUV_VM_SYSROOT:-}
NUV_VM_KROOT=${NUV_VM_KROOT:-}
NUV_VM_LIBRARY_DIRS=${NUV_VM_LIBRARY_DIRS:-/lib /usr/lib}

# Prints where the guest's PATH is found on this machine: in the sysroot when there is one
# and it has that path, else on this machine (the files of a build tree).
image_source() {
  if [[ -n $NUV_VM_SYSROOT && ( -e $NUV_VM_SYSROOT$1 || -L $NUV_VM_SYSROOT$1 ) ]]; then
    echo "$NUV_VM_SYSROOT$1"
  else
    echo "$1"
  fi
}

# Prints the guest's path of a program of its PATH.
image_program() {
  local dir
  if [[ -z $NUV_VM_SYSROOT ]]; then
    command -v "$1"
    return
  fi
  for dir in /usr/sbin /usr/bin /sbin /bin; do
    [[ -x $NUV_VM_SYSROOT$dir/$1 ]] && { echo "$dir/$1"; return 0; }
  done
  echo "vm-run: $1 is not in $NUV_VM_SYSROOT" >&2
  return 1
}

# Prints the newest kernel version that has both an image in /boot and its modules.
image_kernel_version() {
  local dir version best=
  for dir in "$NUV_VM_KROOT"/lib/modules/*/; do
    version=$(basename "$dir")
    [[ -r $NUV_VM_KROOT/boot/vmlinuz-$version && -r $dir/modules.dep ]] || continue
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
  local dir=$NUV_VM_KROOT/lib/modules/$1
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
  local version=$1 cache=$2 bzimage=$NUV_VM_KROOT/boot/vmlinuz-$1 elf magic offset
  elf=$cache/vmlinux-$version-$(stat -L -c '%s-%Y' "$bzimage")
  if [[ -s $elf ]]; then echo "$elf"; return 0; fi
  if grep -qx 'CONFIG_PVH=y' "$NUV_VM_KROOT/boot/config-$version" 2>/dev/null; then
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
  if [[ -n $NUV_VM_SYSROOT ]]; then
    image_elf_libs_in_sysroot "$1"
    return
  fi
  out=$(ldd "$1" 2>&1) || return 0
  if grep -q 'not found' <<<"$out"; then
    echo "vm-run: $1 needs libraries that are not found:" >&2
    grep 'not found' <<<"$out" >&2
    return 1
  fi
  awk '$2 == "=>" && $3 ~ /^\// { print $3; next } $1 ~ /^\// { print $1 }' <<<"$out"
}

# The same for a file of another architecture, which ldd cannot read: follows the ELF
# file's NEEDED entries, and theirs, through its RUNPATH (a build tree's) and the sysroot's
# library directories. Prints guest paths.
image_elf_libs_in_sysroot() {
  local -A seen=()
  local queue=("$1") file source dump name dir found origin
  local -a search
  while [[ ${#queue[@]} -gt 0 ]]; do
    file=${queue[0]}
    queue=("${queue[@]:1}")
    source=$(image_source "$file")
    dump=$(readelf -dlW "$source" 2>/dev/null) || continue
    origin=${file%/*}
    search=()
    for dir in $(sed -n 's/.*Library r\(un\)\?path: \[\(.*\)\]/\2/p' <<<"$dump" | tr ':' ' '); do
      search+=("${dir//\$ORIGIN/$origin}")
    done
    # shellcheck disable=SC2206 # a list of directories
    search+=($NUV_VM_LIBRARY_DIRS)
    for name in $(sed -n 's/.*program interpreter: \(.*\)\]/\1/p; s/.*Shared library: \[\(.*\)\]/\1/p' <<<"$dump"); do
      found=
      if [[ $name == /* ]]; then
        found=$name
      else
        for dir in "${search[@]}"; do
          # A RUNPATH outside the system's directories is this machine's (a build tree).
          if [[ -e $NUV_VM_SYSROOT$dir/$name ]] || [[ $dir != /lib* && $dir != /usr/lib* && -e $dir/$name ]]; then
            found=$dir/$name
            break
          fi
        done
      fi
      if [[ -z $found ]]; then
        echo "vm-run: $file needs $name, which is not found" >&2
        return 1
      fi
      [[ -n ${seen[$found]:-} ]] && continue
      seen[$found]=1
      echo "$found"
      queue+=("$found")
    done
  done
}

# Gives a staging root the host's top-level symlinks (/lib -> usr/lib on a merged-/usr
# system), so that host paths copied in land where the guest looks for them. The per-run
# archive needs them too: a plain "lib" directory in it would replace the base's link.
image_root_links() {
  local root=$1 dir target
  for dir in bin sbin lib lib32 lib64 libx32; do
    [[ -L $NUV_VM_SYSROOT/$dir ]] || continue
    target=$(readlink "$NUV_VM_SYSROOT/$dir")
    ln -sfn "$target" "$root/$dir"
    [[ $target == /* ]] || target=/$target
    mkdir -p "$root$target"
  done
}

# Copies a host path into the staging root at the same place, recreating each symlink on
# the way to the real file (libfoo.so.1 -> libfoo.so.1.2.3 both exist in the guest).
image_stage_host_path() {
  local root=$1 path=$2 target
  while [[ -L $(image_source "$path") ]]; do
    target=$(readlink "$(image_source "$path")")
    mkdir -p "$root${path%/*}"
    [[ -e $root$path || -L $root$path ]] || ln -s "$target" "$root$path"
    [[ $target == /* ]] || target=${path%/*}/$target
    path=$target
  done
  [[ -e $root$path ]] && return 0
  mkdir -p "$root${path%/*}"
  cp -pL "$(image_source "$path")" "$root$path"
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
    cat "$harness_dir/vm-run" "$harness_dir/image.sh" "$harness_dir"/arch-*.sh "$harness_dir"/guest/*
    stat -L -c '%n %s %Y' "$NUV_VM_KROOT/boot/vmlinuz-$version" "$NUV_VM_KROOT/lib/modules/$version/modules.dep" \
      "$NUV_VM_SOUNDFONT" "$(image_source /usr/share/alsa/alsa.conf)" /var/lib/dpkg/status
    # A sysroot is unpacked anew as a whole: its directory's inode and time tell it apart.
    [[ -z $NUV_VM_SYSROOT ]] || stat -c '%n %i %Y' "$NUV_VM_SYSROOT"
    for tool in busybox $NUV_VM_TOOLS; do
      stat -L -c '%n %s %Y' "$(image_source "$(image_program "$tool")")"
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
    path=$(image_program "$tool")
    image_stage_host_path "$root" "$path"
    image_elf_libs "$path" >>"$root/libs"
  done
  sort -u "$root/libs" | while IFS= read -r path; do image_stage_host_path "$root" "$path"; done

  # Busybox's applets, where no real program of the same name was copied in. The list is
  # this machine's busybox's: a sysroot's busybox, of the same Debian release, has the same.
  busybox --list-full | while IFS= read -r applet; do
    [[ $applet == */* && ! -e $root/$applet && ! -L $root/$applet ]] || continue
    mkdir -p "$root/${applet%/*}"
    ln -s /bin/busybox "$root/$applet"
  done
  [[ -e $root/bin/busybox ]] || image_stage_as "$root" "$(image_source "$(image_program busybox)")" /bin/busybox

  image_stage_as "$root" "$(image_source /usr/share/alsa)" /usr/share/alsa
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
    path in have { print line }' "$root/plan" "$NUV_VM_KROOT/lib/modules/$version/modules.dep" \
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
