# The table of settings in tools/settings.txt, and the papers that are made from it: the policies, their
# texts, the file of defaults, and the table on the administrator's page. Used by tools/settings_papers,
# which writes them, and by the rule of settings, which compares them.
package Settings;
use strict;
use warnings;

our $table = 'tools/settings.txt';
our $page = 'package/administration.md';
our $policies = 'package/policies/Holv.admx';
our $texts = 'package/policies/en-US/Holv.adml';
our $defaults = 'package/defaults.reg';

# The settings of the table's text, in its order: {name, key, kind, least, most, default, effect, title,
# meaning, line}. Dies of a line that it cannot read.
sub parse {
    my ($text) = @_;
    my (@settings, $line);
    for (split /\n/, $text) {
        ++$line;
        next if /^(?:#|\s*$)/;
        if (/^\s+(.*)/ and @settings and not defined $settings[-1]{meaning}) { $settings[-1]{meaning} = $1; next }
        /^(\w+) \| (User|OEM) \| (switch|text|bounded|number)(?: (\d+) to (\d+))? \| (\w+) \| (start|at once) \| (.+)$/
            or die "$table:$line: not NAME | KEY | KIND | BUILT-IN | TAKES EFFECT | TITLE, nor its meaning\n";
        push @settings, {name => $1, key => $2, kind => $3, least => $4, most => $5, default => $6,
                         effect => $7, title => $8, line => $line};
    }
    return @settings;
}

sub is_number { return $_[0]{kind} eq 'bounded' || $_[0]{kind} eq 'number' }
sub key { return "Software\\Orbeq\\Holv\\$_[0]{key}" }

# The page's row of a setting.
sub row {
    my ($s) = @_;
    my $range = $s->{kind} eq 'switch' ? '0, 1' : $s->{kind} eq 'text' ? 'text'
              : "$s->{least} to $s->{most}" . ($s->{kind} eq 'bounded' ? ' \*' : '');
    my $default = $s->{kind} eq 'text' ? 'none' : $s->{default};
    return "| `$s->{name}` | $s->{key} | $default | $range | $s->{meaning} |\n";
}

# The explanation of a policy: the meaning without markup.
sub explanation {
    my ($s) = @_;
    my $meaning = $s->{meaning} =~ tr{`}{}dr;
    my $range = is_number($s) ? " From $s->{least} to $s->{most}." : '';
    my $default = $s->{kind} eq 'text' ? 'none' : is_number($s) ? $s->{default} : $s->{default} ? 'on' : 'off';
    my $effect = $s->{effect} eq 'start' ? 'when the service next starts' : 'at once';
    return escaped("$meaning$range Built-in: $default. Takes effect $effect.");
}

sub escaped { return $_[0] =~ s/&/&amp;/gr =~ s/</&lt;/gr =~ s/>/&gt;/gr }

sub policy {
    my ($s) = @_;
    my ($name, $path) = ($s->{name}, key($s));
    my $switch = $s->{kind} eq 'switch';
    my $shown = $switch ? qq{key="$path" valueName="$name"} : qq{presentation="\$(presentation.$name)" key="$path"};
    my $body = $switch
        ? qq{      <enabledValue><decimal value="1"/></enabledValue>\n}
          . qq{      <disabledValue><decimal value="0"/></disabledValue>\n}
        : is_number($s)
        ? qq{      <elements><decimal id="$name" valueName="$name" required="true" minValue="$s->{least}" maxValue="$s->{most}"/></elements>\n}
        : qq{      <elements><text id="$name" valueName="$name" required="true" maxLength="127"/></elements>\n};
    return qq{    <policy name="$name" class="Machine" displayName="\$(string.$name)"}
        . qq{ explainText="\$(string.${name}_Help)" $shown>\n}
        . qq{      <parentCategory ref="Holv"/>\n      <supportedOn ref="Windows7"/>\n$body    </policy>\n};
}

sub presentation {
    my ($s) = @_;
    my ($name, $title) = ($s->{name}, escaped($s->{title}));
    my $field = is_number($s)
        ? qq{<decimalTextBox refId="$name" defaultValue="$s->{default}">$title:</decimalTextBox>}
        : qq{<textBox refId="$name"><label>$title:</label></textBox>};
    return qq{      <presentation id="$name">$field</presentation>\n};
}

sub admx {
    my @settings = @_;
    return <<'HEAD' . join('', map { policy($_) } @settings) . "  </policies>\n</policyDefinitions>\n";
<?xml version="1.0" encoding="utf-8"?>
<!-- The settings of the service as machine policies. They are written where the service reads its
     settings, so a value stays until the policy sets another or it is deleted. -->
<policyDefinitions revision="1.0" schemaVersion="1.0"
                   xmlns="http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions">
  <policyNamespaces>
    <target prefix="holv" namespace="Orbeq.Policies.Holv"/>
  </policyNamespaces>
  <resources minRequiredRevision="1.0"/>
  <supportedOn>
    <definitions><definition name="Windows7" displayName="$(string.Windows7)"/></definitions>
  </supportedOn>
  <categories><category name="Holv" displayName="$(string.Holv)"/></categories>
  <policies>
HEAD
}

sub adml {
    my @settings = @_;
    my $strings = join '', map { qq{      <string id="$_->{name}">@{[escaped($_->{title})]}</string>\n}
        . qq{      <string id="$_->{name}_Help">@{[explanation($_)]}</string>\n} } @settings;
    my $presentations = join '', map { presentation($_) } grep { $_->{kind} ne 'switch' } @settings;
    return <<"TEXTS";
<?xml version="1.0" encoding="utf-8"?>
<policyDefinitionResources revision="1.0" schemaVersion="1.0"
                           xmlns="http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions">
  <displayName>Orbeq(R) Holv Technology</displayName>
  <description>The settings of the never-sleep service</description>
  <resources>
    <stringTable>
      <string id="Holv">Orbeq(R) Holv Technology</string>
      <string id="Windows7">Windows 7 or later, 64-bit</string>
$strings    </stringTable>
    <presentationTable>
$presentations    </presentationTable>
  </resources>
</policyDefinitionResources>
TEXTS
}

# Every value is a comment: a User value, also a built-in one, would hide the PC maker's OEM value.
sub reg {
    my @settings = @_;
    my $text = "Windows Registry Editor Version 5.00\n\n"
        . "; The built-in values. Remove the semicolon before a value to set it. A value that is set in\n"
        . "; User hides the PC maker's value in OEM.\n";
    for my $key (qw(User OEM)) {
        my @values = map { ";\"$_->{name}\"="
            . ($_->{kind} eq 'text' ? "\"$_->{default}\"" : sprintf 'dword:%08x', $_->{default}) . "\n" }
            grep { $_->{key} eq $key } @settings or next;
        $text .= join '', "\n", $key eq 'User' ? '' : "; Remove the semicolon before this key too.\n;",
                 "[HKEY_LOCAL_MACHINE\\Software\\Orbeq\\Holv\\$key]\n", @values;
    }
    return $text =~ s/\n/\r\n/gr;
}

# The page with the table of settings in the place of the present one.
sub page {
    my ($present, @settings) = @_;
    my $rows = join '', map { row($_) } @settings;
    return $present =~ s/^(\| value \| key \|.*\n\|[-|]+\n)(?:\|.*\n)*/$1$rows/mr;
}

# What the papers should be: path => text. `present` is the page as it is.
sub papers {
    my ($present, @settings) = @_;
    return ($page => page($present, @settings), $policies => admx(@settings), $texts => adml(@settings),
            $defaults => reg(@settings));
}

1;
