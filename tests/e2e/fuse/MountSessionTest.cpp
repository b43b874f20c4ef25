// What people type in a folder, on the mount and in a folder of this machine: the same comes of it,
// byte by byte and name by name.
#include "e2e/fuse/MountedFixture.h"
#include "e2e/fuse/Tree.h"

namespace {

// $1 is the folder to work in, $2 holds what is copied from. $3 and $4 say whether links can be
// made and times be set.
constexpr const char* kSession = R"sh(
set -eux
umask 022
cd "$1"
from=$2
links=$3
times=$4

# Listing, copying, moving. What is told in the same way everywhere is kept.
ls -la
mkdir -p deep/down/below deep/down/below
cp "$from/text" "$from/binary" deep
cp -p "$from/script" deep/script
cp -r "$from" copied
ls -la deep copied
mv deep/text deep/down/renamed
mv deep/down deep/up
mv deep/binary .
mv -n binary deep/up/renamed || true
rm -r copied
test ! -e copied
ls -1 deep deep/up >> results

# Links and odd names
if [ $links = yes ]; then
    ln -s deep/up/renamed near
    ln -s /usr/bin/env far
    ln -s ../session parent
    ln -s nowhere dangling
    ln deep/up/renamed hard
    cat near hard >> results
    test -x far
    readlink near far parent dangling >> results
    chmod 640 hard
    mkfifo pipe
fi
printf x > 'two words'
printf x > "quote'\"s"
printf x > ./-dash
printf x > 'größe'
chmod u+x,go-r 'two words'

# Times
if [ $times = yes ]; then
    printf x > dated
    touch -d '2001-02-03 04:05:06 UTC' dated
    cp -p dated dated-too
    touch -r dated 'two words'
    stat -c '%n %Y' dated dated-too 'two words' >> results
fi

# Archives
tar cf ../session.tar -C "$from" .
mkdir unpacked
tar xf ../session.tar -C unpacked
tar cf - -C unpacked . | tar tf - | sort >> results
rm ../session.tar

# Versions
git clone -q "$from/repository" clone
git -C clone status --short --branch >> results
printf 'more\n' >> clone/tracked
rm clone/gone
git -C clone status --short >> results
git -C clone -c user.name=n -c user.email=e commit -qam change
git -C clone log --format=%s >> results
git -C clone fsck --no-progress
git -C clone gc -q
git -C clone status --short >> results
rm -rf clone/.git

# An editor saves: by a new file, and with a copy of the old one
printf 'first\n' > document
printf 'second\n' > .document.new
sync .document.new
mv -f .document.new document
cp -p document document~
printf 'third\n' > document
printf 'fourth\n' >> document
sed -i s/third/THIRD/ document
cat document document~ >> results

# Odd blocks, holes and sizes
dd if="$from/binary" of=blocks bs=777
dd if="$from/binary" of=blocks bs=1001 count=3 seek=5 conv=notrunc
dd if=/dev/zero of=hole bs=1 count=1 seek=300000
truncate -s 12345 cut
cp "$from/binary" cut2
truncate -s 5000 cut2
dd if=blocks bs=3333 skip=2 | cksum >> results
cksum blocks hole cut cut2 >> results

# Copies that are kept up to date
mkdir kept
rsync -rlp --inplace "$from/" kept
printf 'changed' > kept/text
rsync -rlpc --inplace --delete "$from/" kept
cmp "$from/text" kept/text
rsync -a "$from/text" kept/plain

# A program
mkdir build
printf '#include "said.h"\n#include <stdio.h>\nint main(void) { puts(SAID); return 0; }\n' > build/a.c
printf '#define SAID "it runs"\n' > build/said.h
cc -c -o build/a.o build/a.c
cc -o build/a build/a.o
./build/a >> results
rm build/a build/a.o

# Many
mkdir many
for i in $(seq 200); do echo $i > many/$i; done
find . -type f | sort >> results
find many -name '1*' -delete
cat many/* | cksum >> results
grep -rl fourth . | sort >> results
du --apparent-size -s many > /dev/null
df . > /dev/null
)sh";

struct Known {
    const char* path;
    const char* reason;
};

struct Case {
    DialectWords dialect;
    bool links, times;               // whether the dialect has them
    std::vector<Known> differences;  // of the mount from a folder of this machine
};

void PrintTo(const Case& one, std::ostream* to) {
    *to << one.dialect.name;
}

class MountSessionTest : public MountedFixture, public ::testing::WithParamInterface<Case> {
protected:
    MountSessionTest() : MountedFixture(GetParam().dialect) {}

    void SetUp() override {
        for (const char* program : {"/usr/bin/git", "/usr/bin/rsync", "/usr/bin/cc"}) {
            if (::access(program, X_OK) != 0) GTEST_SKIP() << program << " is missing";
        }
        MountedFixture::SetUp();
    }

    std::string makeSource() const {
        const std::string from = m_folder.folder("from");
        m_folder.file("from/text", "some text\n");
        std::string bytes(1'234'567, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i / 7);
        m_folder.file("from/binary", bytes);
        m_folder.file("from/empty");
        ::chmod(m_folder.file("from/script", "#!/bin/sh\necho hello\n").c_str(), 0755);
        ::chmod(m_folder.file("from/protected", "nobody writes this\n").c_str(), 0444);
        if (GetParam().links) ::symlink("text", m_folder.str("from/link").c_str());
        const Outcome made = run({"/bin/sh", "-eu", "-c",
                                  "git init -q -b main \"$1\"; cd \"$1\"; echo one > tracked; "
                                  "echo two > gone; git add .; "
                                  "git -c user.name=n -c user.email=e commit -qm first",
                                  "sh", m_folder.str("from/repository")},
                                 {});
        EXPECT_EQ(made.exitCode, 0) << made.err;
        return from;
    }

    Outcome session(const std::string& folder, const std::string& from) const {
        std::filesystem::create_directory(folder);
        const auto word = [](bool can) { return can ? "yes" : "no"; };
        return run({"/bin/sh", "-c", kSession, "sh", folder, from, word(GetParam().links),
                    word(GetParam().times)},
                   {});
    }

    static void leaveOut(Tree& tree) {
        for (const Known& known : GetParam().differences) tree.erase(known.path);
    }
};

TEST_P(MountSessionTest, ComesOutAsOnALocalFolder) {
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("GIT_CONFIG_COUNT", "1", 1);
    ::setenv("GIT_CONFIG_KEY_0", "safe.directory", 1);
    ::setenv("GIT_CONFIG_VALUE_0", "*", 1);
    const std::string from = makeSource();
    share();
    startMount();

    const Outcome there = session(m_there + "/session", from);
    ASSERT_EQ(there.exitCode, 0) << there.err << m_mounted->error();
    const Outcome here = session(m_here + "/session", from);
    ASSERT_EQ(here.exitCode, 0) << here.err;

    Tree onMount = treeOf(m_there + "/session");
    Tree local = treeOf(m_here + "/session");
    leaveOut(onMount);
    leaveOut(local);
    EXPECT_EQ(differences(onMount, local), "");
    EXPECT_GT(local.size(), 100u);

    // The links of the other side lead where they were meant to; their texts are its own.
    Tree behind = treeOf(m_share + "/session");
    onMount = treeOf(m_there + "/session");
    std::erase_if(behind, [](const auto& object) { return object.second.starts_with("link"); });
    std::erase_if(onMount, [](const auto& object) { return object.second.starts_with("link"); });
    EXPECT_EQ(differences(onMount, behind), "");
}

// Left out on both sides of every comparison: owners, since everything on a mount belongs to
// whoever mounted, and times, which the Linux dialect cannot set. The Windows dialect knows no
// links and no FIFOs.
INSTANTIATE_TEST_SUITE_P(Dialects, MountSessionTest,
                         ::testing::Values(Case{kLinux, /*links=*/true, /*times=*/false, {}},
                                           Case{kWindows, /*links=*/false, /*times=*/true, {}}),
                         [](const auto& test) { return test.param.dialect.name; });

}  // namespace
