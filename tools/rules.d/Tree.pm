# The source tree as the rules see it: which files there are, and of each its text, its code and its
# comments. Used by tools/rules and tools/share.
package Tree;
use strict;
use warnings;
use File::Find;

# The folders of the service.
our @service = qw(service settings state restore reconciler power audio api log process
    json publish history);
our $service = qr{^(?:@{[join '|', @service]})/};

# All files of `root`: in a git work tree those that are tracked or could be added, else what is there.
sub new {
    my ($class, $root) = @_;
    my @files;
    if (-e "$root/.git") {
        open my $list, '-|', 'git', '-C', $root, qw(ls-files -z -co --exclude-standard)
            or die "git ls-files: $!\n";
        local $/ = "\0";
        chomp(@files = <$list>);
        close $list or die "git ls-files failed\n";
    } else {
        find({no_chdir => 1, wanted => sub { push @files, substr $_, length "$root/" if -f }}, $root);
    }
    my %seen;
    @files = sort grep { -f "$root/$_" and not $seen{$_}++ } @files;
    return bless {root => $root, files => \@files}, $class;
}

# The files whose paths match, in the order of their names.
sub files {
    my ($self, $pattern) = @_;
    return grep { $_ =~ $pattern } @{$self->{files}};
}

# Whether there is such a file or folder.
sub has {
    my ($self, $path) = @_;
    $path =~ s{/$}{};
    $self->{known} //= {map { my $part = $_; my @all = $part; push @all, $part while $part =~ s{/[^/]*$}{};
                              map { $_ => 1 } @all } @{$self->{files}}};
    return $self->{known}{$path};
}

# A file's bytes; empty when there is none.
sub text {
    my ($self, $path) = @_;
    return $self->{text}{$path} //= do {
        my $text = '';
        if (open my $file, '<:raw', "$self->{root}/$path") { local $/; $text = <$file> // '' }
        $text;
    };
}

# 'c' for C++, 'hash' for what comments with #, '' for the rest.
sub language {
    my ($self, $path) = @_;
    return 'c' if $path =~ /\.(?:cpp|h)$/;
    return 'hash' if $path =~ /\.(?:pl|pm|sh|cmake)$/ or $path =~ m{(?:^|/)CMakeLists\.txt$};
    return $path !~ m{\.\w+$} && $self->text($path) =~ /^#!/ ? 'hash' : '';
}

# Blanks a stretch for good: nothing but its line ends stays.
sub blank { return $_[0] =~ s/[^\n]/ /gr }
# Blanks a stretch that no phrase may reach across.
sub bar { return $_[0] =~ s/[^\s]/\0/gr }

my $raw_string = qr/R"([^(\s]*)\((?:.*?)\)\g{-1}"/s;
my $string = qr/"(?:\\.|[^"\\\n])*"/s;
my $character = qr/(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'/;
my $comment = qr{//[^\n]*|/\*.*?\*/}s;

# Splits a C++ file into three texts of its own length: code without comments and the contents of
# strings, code without comments alone, and comments alone.
sub split_c {
    my ($text) = @_;
    my ($code, $strings, $comments) = ('', '', '');
    while ($text =~ m{\G(?:($comment)|($raw_string|$string|$character)|([^/"'R]+|.))}gs) {
        my ($words, $quoted, $plain) = ($1, $2, $4);
        if (defined $words) {
            $code .= blank($words);
            $strings .= blank($words);
            $words =~ s{^(//+|/\*+)}{' ' x length $1}e;
            $words =~ s{\*/$}{  };
            $words =~ s{^(\s*)\*}{$1 }mg;
            $comments .= $words;
        } elsif (defined $quoted) {
            $strings .= $quoted;
            $code .= substr($quoted, 0, 1) . blank(substr $quoted, 1, -1) . substr $quoted, -1;
            $comments .= bar($quoted);
        } else {
            $code .= $plain;
            $strings .= $plain;
            $comments .= bar($plain);
        }
    }
    return ($code, $strings, $comments);
}

# The same where # begins a comment, at the line's beginning or after a blank.
sub split_hash {
    my ($text) = @_;
    my ($code, $comments) = ('', '');
    for my $line (split /^/, $text) {
        my ($plain, $words) = $line =~ /^((?:.*?\s)??)((?:\#.*)?\n?)\z/s;
        $code .= $plain . blank($words);
        $comments .= bar($plain) . $words =~ s/^#+!?/' ' x length $&/er;
    }
    return ($code, $code, $comments);
}

sub parts {
    my ($self, $path) = @_;
    return $self->{parts}{$path} //= do {
        my $language = $self->language($path);
        my $text = $self->text($path);
        [$language eq 'c' ? split_c($text) : $language eq 'hash' ? split_hash($text) : ($text, $text, '')];
    };
}
sub code { return $_[0]->parts($_[1])->[0] }
sub code_with_strings { return $_[0]->parts($_[1])->[1] }
sub comments { return $_[0]->parts($_[1])->[2] }

# The line, from 1, of a place in a text.
sub line_of {
    my ($text, $place) = @_;
    return 1 + (substr($text, 0, $place) =~ tr/\n//);
}

# The functions of a file: [name, first line, lines from brace to brace] of each. A lambda belongs to the function
# that it stands in, and a table's initialiser is none.
sub functions {
    my ($self, $path) = @_;
    my $language = $self->language($path);
    my $code = $self->code($path);
    return functions_c($code) if $language eq 'c';
    my @functions;
    while ($code =~ /^(?:sub (\w+) \{|(\w+)\(\) \{)\n.*?^\}/msg) {
        my ($name, $lines) = ($1 // $2, 1 + ($& =~ tr/\n//));
        push @functions, [$name, line_of($code, $-[0]), $lines];
    }
    return @functions;
}

sub functions_c {
    my ($code) = @_;
    $code =~ s/^\s*#(?:[^\n]*\\\n)*[^\n]*/blank($&)/mge;
    my @functions;
    my $head = 0;  # where the declaration that is being read begins
    while ($code =~ /[;{}]/g) {
        my $end = pos $code;
        if ($& ne '{') { $head = $end; next }
        my $before = substr $code, $head, $end - 1 - $head;
        $before =~ s/^(?:\s*(?:public|private|protected)\s*:)+/blank($&)/e;
        my $bare = $before =~ s/\btemplate\s*<[^{}]*?>(?=\s*\w)//r;
        if ($bare =~ /^\s*(?:inline\s+)?(?:namespace|extern)\b/ or $bare !~ /\(/ && $bare =~ /\b(?:class|struct|union)\b/) {
            $head = $end;
            next;
        }
        my $function = $bare =~ /\(/ && $bare !~ /[^=!<>]=\s*(?:\w+\s*)?$/ && $bare !~ /^[^(]*[^=!<>r]=[^=]/;
        my $open = $end - 1;
        $code =~ /(?:[^{}]|(\{(?:[^{}]++|(?1))*+\}))*+\}/g or last;
        next if $function and $code =~ /\G\s*[,{]/;  # a member's initialiser
        if ($function) {
            my ($name) = $bare =~ /(\w*(?:::)?operator\s*[^\s(]*|[~\w:]+)\s*\(/;
            $name .= ".$1" if $bare =~ /^\s*(?:TYPED_)?TEST(?:_[FP])?\(\s*\w+,\s*(\w+)/;
            my $first = $head + ($before =~ /^\s*/ ? $+[0] : 0);
            my $lines = 1 + (substr($code, $open, pos($code) - $open) =~ tr/\n//);
            push @functions, [$name // '?', line_of($code, $first), $lines];
        }
        $head = pos $code;
    }
    return @functions;
}

1;
