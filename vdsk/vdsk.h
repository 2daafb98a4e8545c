// Virtual disks, read by sector: raw images and qcow2 with its backing chain.
#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

struct vdsk;

// Opens a disk image read-only, by path. Null with errno: ENOENT and the like of the open, EINVAL
// for an image that is damaged, encrypted or of another format, ENOENT also for a base image that
// is missing.
struct vdsk *vdsk_open(const char *path);
// Bytes of one sector: 4096 for a disk whose partition table says so, else 512.
uint32_t vdsk_sectorsize(const struct vdsk *disk);
// Sectors of the disk; a last, partial sector counts and reads as if zeros followed. Less than one
// sector is none: there is nothing of a disk in it.
uint64_t vdsk_sectors(const struct vdsk *disk);
// Reads `count` whole sectors from `first` on into `buffer`. The number of sectors read, fewer at
// the end of the disk; -1 with errno set.
ssize_t vdsk_read(struct vdsk *disk, void *buffer, uint64_t first, size_t count);
// Closes a disk; null is accepted.
void vdsk_close(struct vdsk *disk);
// The reason of the last failed open or read on this thread, naming the image; "" after an open
// that succeeded.
const char *vdsk_error();
