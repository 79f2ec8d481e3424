#!/usr/bin/env perl
# Packs the files of a folder, in the order of their names and with the time SOURCE_DATE_EPOCH, so that the
# same files give the same bytes. Usage: installer/make_zip.pl FOLDER NAME ZIP, where NAME is the folder's
# name in the archive
use strict;
use warnings;

use File::Find;
use IO::Compress::Zip qw(:constants $ZipError);

my ($folder, $name, $archive) = @ARGV;
# The archive holds local times.
$ENV{TZ} = 'UTC0';
my @files;
find({no_chdir => 1, wanted => sub { push @files, substr $_, 1 + length $folder if -f }}, $folder);
my $zip;
for my $file (sort @files) {
    open my $content, '<:raw', "$folder/$file" or die "$file: $!\n";
    my %entry = (Name => "$name/$file", Time => $ENV{SOURCE_DATE_EPOCH}, Minimal => 1, Method => ZIP_CM_DEFLATE);
    if ($zip) {
        $zip->newStream(%entry);
    } else {
        $zip = IO::Compress::Zip->new($archive, %entry, BinModeIn => 1) or die "$archive: $ZipError\n";
    }
    local $/;
    $zip->print(scalar <$content>);
}
$zip->close or die "$archive: $ZipError\n";
