#include <gtest/gtest.h>

#include "platform/RemoteFolders.h"
#include "platform/linux/LinuxRemoteFolders.h"

namespace wf::platform {
namespace {

TEST(RemoteFolders, NetworkAndFuseTypesAreRemoteLocalOnesAreNot) {
  for (const char* type :
       {"nfs", "nfs4", "cifs", "smb3", "9p", "ceph", "afs", "lustre", "glusterfs", "fuse",
        "fuseblk", "fuse.sshfs", "fuse.bindfs", "fuse.rclone"})
    EXPECT_TRUE(isRemoteFileSystemType(type)) << type;
  for (const char* type :
       {"ext4", "xfs", "btrfs", "tmpfs", "overlay", "zfs", "vfat", "unknown", "fusectl", ""})
    EXPECT_FALSE(isRemoteFileSystemType(type)) << type;
}

constexpr std::string_view kMountInfo =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "30 22 0:25 / /home rw shared:2 - xfs /dev/sda2 rw\n"
    "41 30 0:40 / /home/anna/Shared\\040Sync rw,nosuid - fuse.sshfs anna@server: rw\n"
    "42 30 0:41 / /home/anna/nfs rw - nfs4 server:/export rw\n"
    "43 42 0:42 / /home/anna/nfs rw - tmpfs tmpfs rw\n"
    "44 22 0:43 / /mnt rw master:3 shared:9 - cifs //server/share rw\n";

TEST(RemoteFolders, TheLongestMountPointHoldingThePathGivesItsType) {
  EXPECT_EQ(mountTypeFromMountInfo(kMountInfo, "/etc"), "ext4");
  EXPECT_EQ(mountTypeFromMountInfo(kMountInfo, "/home/anna"), "xfs");
  EXPECT_EQ(mountTypeFromMountInfo(kMountInfo, "/home/anna/Shared Sync/lists"), "fuse.sshfs");
  EXPECT_EQ(mountTypeFromMountInfo(kMountInfo, "/home/anna/Shared Syncs"), "xfs");
  // The later of two mounts on one point is on top.
  EXPECT_EQ(mountTypeFromMountInfo(kMountInfo, "/home/anna/nfs"), "tmpfs");
  // Optional fields before the separator.
  EXPECT_EQ(mountTypeFromMountInfo(kMountInfo, "/mnt/x"), "cifs");
  EXPECT_EQ(mountTypeFromMountInfo("", "/"), "");
  EXPECT_EQ(mountTypeFromMountInfo("garbage line\n\n1 2 3\n", "/"), "");
}

TEST(RemoteFolders, ALocalFolderIsNotRemote) {
  LinuxRemoteFolders folders;
  FolderFileSystem fs = folders.fileSystemOf(testing::TempDir());
  EXPECT_FALSE(fs.type.empty());
  EXPECT_NE(fs.type, "unknown");
  EXPECT_EQ(fs.remote, isRemoteFileSystemType(fs.type));
}

}  // namespace
}  // namespace wf::platform
