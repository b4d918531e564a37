# Checks a capture of a SOME/IP session between vesk-sensord and veskctl, as tshark decoded it
# (tshark -T json --no-duplicate-keys), against the protocol and against the sensors' services.
# Arguments: --arg sensor <daemon's IPv4 address>, --arg instances "0x0010,0x0011", --argjson ttl <offer TTL>.
# Prints one "FAIL: ..." line per problem.

# The payload sizes of each method and event are the unit tests' (MethodCallTest, ClientTest); here
# the ids, addresses, ports and SD state are checked as an independent decoder reads them.
def services: ["0x0002", "0x0003", "0x0004"];

def many: if . == null then [] elif type == "array" then . else [.] end;
def hex: ascii_downcase | ltrimstr("0x") | explode
  | reduce .[] as $c (0; . * 16 + (if $c >= 97 then $c - 87 else $c - 48 end));
def multicast: (split(".")[0] | tonumber) as $first | $first >= 224 and $first <= 239;

# One record per SOME/IP message, with its SD entries (each with the options its first run references).
def messages:
  [ .[]._source.layers
    | select(.udp != null)
    | { frame: (.frame["frame.number"] | tonumber),
        src: .ip["ip.src"], dst: .ip["ip.dst"],
        sport: (.udp["udp.srcport"] | tonumber), dport: (.udp["udp.dstport"] | tonumber),
        sd: (.someipsd | many) } as $f
    | (.someip | many) as $parts
    | if ($parts | length) == 0 then $f + {undecoded: true}
      else $parts[] as $m
        | $f + {
            service: $m["someip.serviceid"], method: $m["someip.methodid"],
            client: $m["someip.clientid"], session: ($m["someip.sessionid"] | hex),
            protocol: $m["someip.protoversion"], interface: $m["someip.interfaceversion"],
            type: $m["someip.messagetype"], code: $m["someip.returncode"] }
      end ];

def sdEntries($sd):
  ($sd["someipsd.options"] // {} | to_entries | map(.value)) as $options
  | ($sd["someipsd.entries"]["someipsd.entry"] | many)[]
  | (.["someipsd.entry.index1"] | hex) as $first
  | (.["someipsd.entry.numopt1"] | hex) as $count
  | { type: .["someipsd.entry.type"], service: .["someipsd.entry.serviceid"],
      instance: .["someipsd.entry.instanceid"], ttl: (.["someipsd.entry.ttl"] | tonumber),
      eventgroup: .["someipsd.entry.eventgroupid"],
      endpoints: [ $options[$first:$first + $count][]
                   | { type: .["someipsd.option.type"], address: .["someipsd.option.ipv4address"],
                       proto: .["someipsd.option.proto"],
                       port: ((.["someipsd.option.port"] // "0") | tonumber) } ] };

# The one option of entry $e when it is an IPv4 UDP endpoint on $address with a port; null otherwise.
def udpEndpoint($e; $address):
  $e.endpoints | if length == 1 and .[0].type == "4" and .[0].address == $address and .[0].proto == "17" and .[0].port != 0
    then .[0] else null end;

def problem($m; $text): .problems += ["frame \($m.frame) (\($m.src):\($m.sport) -> \($m.dst):\($m.dport)): \($text)"];
def count($what): .counts[$what] += 1;

def checkSdEntry($m; $e; $instances; $ttl):
  ("\($e.service)/\($e.instance)") as $id
  | if $m.src == $sensor then
      if $e.type == "0x01" then
        count(if $e.ttl == 0 then "stopOffer" else "offer" end)
        | if ($e.ttl != 0 and $e.ttl != $ttl) then problem($m; "offer \($id) with TTL \($e.ttl), expected \($ttl)") else . end
        | if (services | index($e.service)) == null or ($instances | index($e.instance)) == null
          then problem($m; "offer of unexpected service/instance \($id)") else . end
        | udpEndpoint($e; $sensor) as $o
        | if $o == null then problem($m; "offer \($id) with options \($e.endpoints), expected one IPv4 UDP endpoint on \($sensor)")
          else .servicePorts["\($o.port)/\($e.service)"] = true end
      elif $e.type == "0x07" then
        count(if $e.ttl == 0 then "subscribeNack" else "subscribeAck" end)
        | if .subscribed["\($m.dst)/\($id)/\($e.eventgroup)"] != true
          then problem($m; "ack/nack of eventgroup \($e.eventgroup) of \($id) that \($m.dst) did not subscribe to") else . end
      else problem($m; "entry type \($e.type) sent by the sensor, expected 0x01 (offer) or 0x07 (ack)") end
    else
      if $e.type == "0x00" then
        count("find")
        | if (services | index($e.service)) == null then problem($m; "find for unexpected service \($e.service)") else . end
      elif $e.type == "0x06" then
        count(if $e.ttl == 0 then "stopSubscribe" else "subscribe" end)
        | udpEndpoint($e; $m.src) as $o
        | if $e.ttl == 0 then .
          elif $o == null then problem($m; "subscribe \($id) with options \($e.endpoints), expected one IPv4 UDP endpoint on \($m.src)")
          else .subscribed["\($m.src)/\($id)/\($e.eventgroup)"] = true | .eventPorts["\($o.address):\($o.port)/\($e.service)"] = true end
      else problem($m; "entry type \($e.type) sent by a client, expected 0x00 (find) or 0x06 (subscribe)") end
    end;

def checkSd($m; $instances; $ttl):
  count("sd")
  | if $m.method != "0x8100" or $m.type != "0x02" or $m.code != "0x00" or $m.client != "0x0000" or $m.interface != "0x01"
    then problem($m; "SD header method \($m.method) type \($m.type) code \($m.code) client \($m.client) interface \($m.interface)") else . end
  | if $m.sport != 30490 or $m.dport != 30490 then problem($m; "SD message not from and to port 30490") else . end
  | ($m.sd[0]["someipsd.flags_tree"]) as $flags
  | if $m.src == $sensor and ($flags["someipsd.flags.reboot"] != "1" or $flags["someipsd.flags.unicast"] != "1")
    then problem($m; "sensor's SD flags \($m.sd[0]["someipsd.flags"]), expected reboot and unicast set") else . end
  # Session ids start at 1 and count up by one per sender and destination (multicast and each unicast
  # peer apart); a restarted sender begins again at 1 with the reboot flag. The capture starts before
  # any program does, so it holds every channel's first message.
  | ("\($m.src)>" + (if ($m.dst | multicast) then "multicast" else $m.dst end)) as $channel
  | .sessions[$channel] as $last
  | if $last == null and $m.session != 1 then problem($m; "first SD session on \($channel) is \($m.session), expected 1")
    elif $last != null and $m.session != $last + 1 and ($m.session != 1 or $flags["someipsd.flags.reboot"] != "1")
    then problem($m; "SD session \($m.session) after \($last) on \($channel)") else . end
  | .sessions[$channel] = $m.session
  | reduce sdEntries($m.sd[0]) as $e (.; checkSdEntry($m; $e; $instances; $ttl));

def checkCall($m):
  ("\($m.service)/\($m.method)") as $id
  | if $m.type == "0x00" then
      count("request")
      | if $m.dst != $sensor or $m.src == $sensor then problem($m; "request not sent to the sensor") else . end
      | if .servicePorts["\($m.dport)/\($m.service)"] != true then problem($m; "request \($id) to port \($m.dport), which no offer of \($m.service) named") else . end
      | if $m.session == 0 or $m.client != "0x1000" then problem($m; "request id \($m.client)/\($m.session), expected client 0x1000 and a session from 1") else . end
      | .pending["\($m.src):\($m.sport)>\($m.dport)/\($id)/\($m.client)/\($m.session)"] = $m.frame
    elif $m.type == "0x80" then
      count("response")
      | ("\($m.dst):\($m.dport)>\($m.sport)/\($id)/\($m.client)/\($m.session)") as $key
      | if .pending[$key] == null then problem($m; "response \($id) \($m.client)/\($m.session) without a request") else . end
      | del(.pending[$key])
      | if $m.code != "0x00" then problem($m; "response \($id) with return code \($m.code)") else . end
    elif $m.type == "0x02" then
      count("notification")
      | if $m.src != $sensor then problem($m; "notification not sent by the sensor") else . end
      | if .eventPorts["\($m.dst):\($m.dport)/\($m.service)"] != true
        then problem($m; "event \($id) to \($m.dst):\($m.dport), which subscribed to no eventgroup of \($m.service)") else . end
    else problem($m; "message type \($m.type) (\($id)), expected 0x00, 0x80 or 0x02") end;

($instances | split(",")) as $instances
| reduce messages[] as $m ({problems: [], counts: {}, sessions: {}, pending: {}};
    if $m.undecoded then problem($m; "UDP datagram not decoded as SOME/IP")
    elif $m.protocol != "0x01" then problem($m; "protocol version \($m.protocol), expected 0x01")
    elif $m.service == "0xffff" and $m.method == "0x8100" then checkSd($m; $instances; $ttl)
    else checkCall($m) end)
| reduce (.pending | to_entries[]) as $p (.; .problems += ["request in frame \($p.value) got no response"])
| reduce ("find", "offer", "stopOffer", "subscribe", "subscribeAck", "request", "response", "notification") as $k (.;
    if (.counts[$k] // 0) == 0 then .problems += ["no \($k) in the capture"] else . end)
| .problems[] | "FAIL: " + .
