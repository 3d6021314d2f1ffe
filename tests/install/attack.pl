#!/usr/bin/perl
# One attempt of a client that breaks the rules, in raw bytes, since the library and the tool would not make it. Exit
# status 0: it got what it wanted; 1: it did not; 2: the attempt itself failed. Needs nothing but what every Debian has.
use strict;
use warnings;
use Fcntl qw(O_CREAT O_EXCL O_WRONLY);
use Socket;

my $PATIENCE = 50;    # seconds
my %RECIPIENT = (bus => '/var/msgsvr', notify => '/var/run/notify/notifyserver', mlog => '/var/mlog/mlogServer');

sub broken { print STDERR "attack: @_\n"; exit 2 }
sub result { my ($worked, $text) = @_; print "$text\n"; exit($worked ? 0 : 1) }

sub attach {    # a socket of that type at a path or HOST:PORT; undef, with $!, if it is refused
  my ($where, $type) = @_;
  my ($domain, $address) = (AF_UNIX, undef);
  if (my ($host, $port) = $where =~ m{^([\d.]+):(\d+)$}) {
    ($domain, $address) = (AF_INET, pack_sockaddr_in($port, inet_aton($host)));
  } else {
    $address = pack_sockaddr_un($where);
  }
  socket(my $socket, $domain, $type, 0) or broken("socket: $!");
  return connect($socket, $address) ? $socket : undef;
}

sub receive {    # exactly so many bytes; undef at the end of the stream
  my ($socket, $wanted) = @_;
  my $bytes = '';
  while (length $bytes < $wanted) {
    my $count = sysread($socket, $bytes, $wanted - length $bytes, length $bytes);
    return undef unless $count;
  }
  return $bytes;
}

sub message {    # TYPE SOURCE DESTINATION DATA BODY
  my ($type, $source, $destination, $data, $body) = @_;
  return pack('L2a12a12L2', $type, 7, $source, $destination, $data, length $body) . $body;
}

sub next_message {
  my ($socket) = @_;
  my $head = receive($socket, 40);
  return undef unless defined $head;
  my %message;
  @message{qw(type sequence source destination data length)} = unpack('L2Z12Z12L2', $head);
  $message{body} = $message{length} ? receive($socket, $message{length}) : '';
  return \%message;
}

sub join_bus {    # the socket and the granted name
  my ($where, $name) = @_;
  my $socket = attach($where, SOCK_STREAM) or broken("$where: $!");
  syswrite($socket, message(0x701, $name, '', 0, ''));
  my $reply = next_message($socket);
  return ($socket, $reply ? $reply->{destination} : '');
}

sub notification {    # TYPE SOURCE DESTINATION DATA, asynchronous
  my ($type, $source, $destination, $data) = @_;
  my $half = length($data) / 2;
  return pack('L12', $type, 1, $source, $destination, 0, 1, length $data, $half, $half, 0, 0, 0) . $data;
}

sub ping {    # whether the notification server still serves the connection: requests to itself return at once
  my ($socket) = @_;
  syswrite($socket, pack('L12', 0x77, 9, 0, 30, 1, 1, 0, 0, 0, 0, 0, 0)) or return 0;
  return defined receive($socket, 48);
}

sub datagram { my ($type, $data) = @_; return pack('L2', $type, length $data) . $data }

my %attempts = (

  # Reaches a socket.
  reach => sub {
    my ($path, $type) = @_;
    my $socket = attach($path, $type eq 'datagram' ? SOCK_DGRAM : SOCK_STREAM);
    result(defined $socket, $socket ? 'connected' : "$!");
  },

  # Puts a socket of its own in the place of a path, or the path out of the way.
  take => sub {
    my ($path) = @_;
    my @ways;
    push @ways, 'unlink' if unlink $path;
    push @ways, 'rename' if rename $path, "$path.away";
    socket(my $own, AF_UNIX, SOCK_STREAM, 0) or broken("socket: $!");
    push @ways, 'bind' if bind $own, pack_sockaddr_un($path);
    result(scalar @ways, "@ways");
  },

  # Gets a name on the bus; with "stay" it keeps the name until its input ends.
  own => sub {
    my ($where, $name, $stay) = @_;
    my ($socket, $granted) = join_bus($where, $name);
    $| = 1;
    print "granted: $granted\n";
    <STDIN> if $stay && $granted;
    exit($granted ? 0 : 1);
  },

  # Has a message accepted: what is refused comes back as a notice, and a barrier's reply comes after that.
  send => sub {
    my ($name, $destination, $type, $data, $body) = @_;
    my ($socket, $granted) = join_bus($RECIPIENT{bus}, $name);
    broken("no name") unless $granted;
    syswrite($socket, message(hex $type, $name, $destination, oct $data, pack('H*', $body // '')));
    syswrite($socket, message(0x705, $name, '', 0, pack('a12', 'nobody')));
    while (my $reply = next_message($socket)) {
      result(0, 'refused') if $reply->{type} == 0x108 || ($reply->{type} == hex $type && $reply->{data} == 1);
      result(1, 'accepted') if $reply->{type} == 0x705;
    }
    result(0, 'cut off');
  },

  # Becomes a module, and posts to another one as if it were a third.
  module => sub {
    my ($mid, $to, $as) = @_;
    my $socket = attach($RECIPIENT{notify}, SOCK_STREAM) or broken("notify: $!");
    syswrite($socket, notification(0, $mid, 30, pack('L2', $mid, 0)));
    result(0, 'cut off') unless ping($socket);
    syswrite($socket, notification(0x4242, $as, $to, pack('L2', 1, 2))) if $to;
    result(ping($socket), 'registered');
  },

  # Is a module, honestly, and prints the source of the first notification.
  hear => sub {
    my ($mid) = @_;
    my $socket = attach($RECIPIENT{notify}, SOCK_STREAM) or broken("notify: $!");
    syswrite($socket, notification(0, $mid, 30, pack('L2', $mid, 0)));
    $| = 1;
    print "registered\n" if ping($socket);
    my $head = receive($socket, 48) // broken('cut off');
    result(1, 'source ' . (unpack 'L12', $head)[2]);
  },

  # Lines of the log.
  lines => sub {
    my ($count, $text) = @_;
    my $socket = attach($RECIPIENT{mlog}, SOCK_DGRAM) or broken("mlog: $!");
    $text =~ s/\\n/\n/g;
    send($socket, datagram(1, "$text\0"), 0) for 1 .. $count;
    result(1, 'sent');
  },

  # Statistics, each of its own name.
  statistics => sub {
    my ($count) = @_;
    my $socket = attach($RECIPIENT{mlog}, SOCK_DGRAM) or broken("mlog: $!");
    send($socket, datagram(2, pack('a256a256L', "taken$_", 'x', 0)), 0) for 1 .. $count;
    result(1, 'sent');
  },

  # Has the answer to its own request go to another's socket: asks, and then puts a link where it asked from.
  redirect => sub {
    my ($victim) = @_;
    my $own = "/var/mlog/attack$$";
    socket(my $socket, AF_UNIX, SOCK_DGRAM, 0) or broken("socket: $!");
    bind($socket, pack_sockaddr_un($own)) or broken("bind: $!");
    send($socket, datagram(4, pack('a256a256L', 'taken1', '', 0)), 0, pack_sockaddr_un($RECIPIENT{mlog}));
    unlink $own;
    symlink $victim, $own or broken("symlink: $!");
    result(1, 'asked');
  },

  # Has a socket in the folder of the log's clients, honestly, and whether anything comes.
  await => sub {
    my ($path, $seconds) = @_;
    socket(my $socket, AF_UNIX, SOCK_DGRAM, 0) or broken("socket: $!");
    bind($socket, pack_sockaddr_un($path)) or broken("bind: $!");
    chmod 0660, $path;
    local $SIG{ALRM} = sub { unlink $path; result(0, 'nothing came') };
    alarm $seconds;
    $| = 1;
    print "waits\n";
    recv($socket, my $bytes, 1024, 0);
    unlink $path;
    result(1, 'an answer');
  },

  # Sends a body in a file, honestly.
  body => sub {
    my ($name, $destination, $text) = @_;
    my ($socket, $granted) = join_bus($RECIPIENT{bus}, $name);
    broken('no name') unless $granted;
    my $path = "/var/run/msg/msg_file_$$";
    sysopen(my $file, $path, O_CREAT | O_EXCL | O_WRONLY, 0660) or broken("$path: $!");
    syswrite($file, $text x 300);
    close $file;
    syswrite($socket, message(0x10004001, $name, $destination, 0, pack('a260', $path)));
    syswrite($socket, message(0x705, $name, '', 0, pack('a12', 'nobody')));
    next_message($socket);
    result(1, 'sent');
  },

  # Puts its own file in the place of each body that is there.
  swap => sub {
    my @ways;
    for my $path (glob('/var/run/msg/msg_file_* /var/run/msg/*/* /var/run/msg/.*/*')) {
      next unless -f $path;
      my $forged = "/var/run/msg/msg_file_9$$";
      sysopen(my $file, $forged, O_CREAT | O_EXCL | O_WRONLY, 0660) or broken("$forged: $!");
      syswrite($file, 'forged ' x 300);
      close $file;
      push @ways, "renamed over $path" if rename $forged, $path;
      unlink $forged;
      push @ways, "wrote $path" if open(my $out, '>>', $path);
      push @ways, "removed $path" if unlink $path;
    }
    result(scalar @ways, "@ways");
  },

  # Is a daemon, honestly: gets a name, waits for a line of input, and prints the body of the first message.
  fetch => sub {
    my ($name) = @_;
    my ($socket, $granted) = join_bus($RECIPIENT{bus}, $name);
    $| = 1;
    print "granted: $granted\n";
    <STDIN>;
    my $message = next_message($socket) // broken('cut off');
    my ($path) = unpack('Z*', $message->{body});
    open(my $file, '<', $path) or result(0, "$path: $!");
    my $text = <$file>;
    unlink $path;
    result(1, substr($text, 0, 6));
  },
);

my $attempt = $attempts{shift @ARGV // ''} or broken('no such attempt');
local $SIG{ALRM} = sub { broken('it takes too long') };
local $SIG{PIPE} = 'IGNORE';
alarm $PATIENCE;
$attempt->(@ARGV);
