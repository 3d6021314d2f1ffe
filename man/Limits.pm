# The limits as the headers write them down: "[unit] What: what happens beyond." in front of a constant.
package Limits;
use strict;
use warnings;
use Exporter 'import';
our @EXPORT_OK = qw(read_limits figure);

my @HEADERS = qw(include/zor/limits.h include/zor/platform/limits.h programs/limits.h);

# "1u << 20", "0x2000l" or "1048576" as a number.
sub number {
  my ($text, $where) = @_;
  $text =~ s/\b(0[xX][0-9a-fA-F]+|\d+)[uUlL]*\b/$1/g;
  $text =~ /^[\dxXa-fA-F<()* +-]+$/ or die "$where: $text is no number\n";
  my $value = eval $text;
  defined $value or die "$where: $text is no number\n";
  return $value;
}

# A value in the unit as people read it.
sub figure {
  my ($value, $unit) = @_;
  return $value if $unit eq '';
  return ($value - 1) . ' characters' if $unit eq 'text';
  if ($unit eq 'bytes') {
    return $value / 1048576 . ' MiB' if $value % 1048576 == 0;
    return $value / 1024 . ' KiB' if $value % 1024 == 0 && $value >= 8192;
  }
  return $value / 1000 . ' s' if $unit eq 'ms' && $value % 1000 == 0;
  return "$value $unit";
}

# Reads the headers below a source directory. Returns the sections, each with title and entries (name, value, unit,
# what, beyond), and a table of all values by name, in which a server's names have its namespace: msgsvr::kClients.
sub read_limits {
  my ($root) = @_;
  my (@sections, %values);
  for my $header (@HEADERS) {
    open my $in, '<', "$root/$header" or die "$root/$header: $!\n";
    local $/;
    my $text = <$in>;
    $text =~ s{^(?:/\*.*?\*/|(?://[^\n]*\n)+)}{}s;  # what the header is
    my $namespace = '';
    my $doc;
    while ($text =~ m{\G(?:
        (?<doc>/\*\s.*?\*/|//[^\n]*(?:\n//[^\n]*)*)\n(?<blank>\n)?
        | \#define\ (?<macro>\w+)\ (?<macro_value>[^\n]+)\n
        | inline\ constexpr\ [\w:]+\ (?<constant>\w+)(?:\ =\ (?<value>[^;]+)|\{(?<braced>[^\}]+)\});[^\n]*\n
        | namespace\ (?<namespace>[\w:]+)\ \{\n
        | (?<end>\})\ \ //\ namespace[^\n]*\n
        | (?:\#[^\n]*)?\n)}gcxs) {
      my %found = %+;
      if (defined $found{doc}) {
        $doc = $found{doc} =~ s{^/\*\s*|\s*\*/$|^//\s*}{}gr =~ s{\n\s*(?://\s*)?}{ }gr;
        if ($found{blank}) {
          push @sections, {title => $doc =~ s/\.$//r, entries => []};
          undef $doc;
        }
        next;
      }
      if (defined(my $name = $found{macro} // $found{constant})) {
        my $value = number($found{macro_value} // $found{value} // $found{braced}, "$header: $name");
        $values{$namespace . $name} = $value;
        if (defined $doc) {
          $doc =~ /^\[(\w*)\] (.*?): (.*)\.$/ or die "$header: $name: not of the form [unit] What: what happens.\n";
          push @{$sections[-1]{entries}},
            {name => $namespace . $name, value => $value, unit => $1, what => $2, beyond => $3};
        } elsif (defined $found{macro}) {
          die "$header: $name: nothing says what happens beyond it\n" if $found{macro_value} ne '';
        }
      } elsif (defined $found{namespace}) {
        $namespace = $found{namespace} =~ /^zor::/ ? '' : "$found{namespace}::";
      } elsif ($found{end}) {
        $namespace = '';
      }
      undef $doc;
    }
    my $at = pos($text) // 0;
    $at == length $text or die "$header: cannot be read at: " . substr($text, $at, 60) . "\n";
  }
  return ([grep { @{$_->{entries}} } @sections], \%values);
}

1;
