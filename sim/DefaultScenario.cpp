#include "DefaultScenario.h"

namespace Sim {

// A small chassis: two chips, a handful of interfaces, and a timeline that
// exercises each subsystem. Each section belongs to one module of sim/modules/.
const char* const kDefaultScenario = R"(name: default two-chip switch
description: >
  Two forwarding chips with four front-panel ports each; the protocol side
  changes its actions while the library turns them into hardware state.
duration: 5
chips:
  - logicalFap: 0
    slice: Linecard1
    interfaces: [Ethernet1/1, Ethernet1/2, Ethernet2/1, Ethernet2/2]
  - logicalFap: 1
    slice: Linecard3
    interfaces: [Ethernet3/1, Ethernet3/2, {Ethernet4/1: [4, 1]}, {Ethernet4/2: [5, 1]}]
asicTime:
  initCounter: true          # the chips' time counters start on "init"
  hpx: hpx1                  # the FPGA whose PTP counter time sync uses
  egressPeriod: 0.25
# Scripted programmers: they stand for components of the agent outside this
# library, which report what they programmed per interface and pipeline.
programmers:
  - name: PKT_TRAP
    interfaces: [Ethernet1/1, Ethernet1/2, Ethernet2/1, Ethernet2/2]
    pipeline: true
    delay: 0.2
    failsAt: [2]
cfUpdate:                    # the platform's correction-field settings per interface
  Ethernet1/1: {ingressUpdate: true, egressMode: residenceTime, twoStepUpdate: true}
  Ethernet1/2: {ingressUpdate: true, egressMode: residenceTime}
  Ethernet2/1: {}
  Ethernet3/1: {egressMode: egressTimestamp, dropInvalid: true}
  Ethernet3/2: {forceSign: true}
lags:
  Port-Channel10: [Ethernet3/1, Ethernet3/2]
ptpMode: 1
ptpIntfConfig:
  Ethernet1/1: {enabled: true}
  Ethernet1/2: {enabled: true}
  Port-Channel10: {enabled: true}
egressCollection:
  timeSource: {0: fpga, 1: asicTimeFile}
  counterNeedsInit: true
  start: 0.5                 # PTP event traffic from then on, per second:
  traffic: {Ethernet1/1: 128, Ethernet1/2: 16, Ethernet3/1: 16, Ethernet3/2: 16}
hwStatus:
  timestampLocation: externalPhy   # interfaces whose PHY takes part in time sync are timestamped there
  slices: {0: Linecard1, 1: Linecard2}
  phyIsland: {Ethernet3/1: {rx: false, tx: false}}
  timeSync: {0: 5, 1: 5}           # 5: stable
portDS:
  - {intf: Ethernet1/1, state: slave, clockId: 001c73.fffe.000001}
  - {intf: Ethernet1/2, state: master, clockId: 001c73.fffe.000001}
  - {intf: Port-Channel10, state: master, clockId: 001c73.fffe.000001}
timeline:
  - at: 1.0
    note: the protocol side starts
  - at: 1.2
    cfUpdate: {intf: Ethernet2/1, egressMode: egressTimestamp}
  - at: 1.5
    bumpGeneration:
  - at: 1.5
    ptpMode: 2
  - at: 2.0
    operStatus: {Ethernet3/2: down}
  - at: 2.0
    asicTimeFault: {logicalFap: 1, fault: missing, for: 1.2}
  - at: 2.2
    cfUpdate: {intf: Ethernet1/2, twoStepUpdate: true, valid: false}
  - at: 2.4
    cfUpdate: {intf: Ethernet1/2}
  - at: 2.5
    bumpGeneration:
  - at: 2.5
    portDS: {intf: Port-Channel10, state: slave}
  - at: 2.6
    hpxFault: {fault: stepBack, by: 2.0, for: 0.5}
  - at: 3.0
    lag: {name: Port-Channel10, members: [Ethernet3/1, Ethernet4/1]}
  - at: 3.2
    timeSync: {0: 3}
  - at: 3.4
    timeSync: {0: 5}
  - at: 3.5
    asicTimeFault: {logicalFap: 0, fault: zero, for: 0.5}
  - at: 3.5
    bumpGeneration:
  - at: 3.5
    portDS: {intf: Ethernet1/1, remove: true}
  - at: 3.6
    bumpGeneration:
  - at: 3.8
    cfUpdate: {intf: Ethernet3/2, remove: true}
  - at: 3.9
    cfUpdate: {intf: Ethernet3/1, egressMode: none, dropInvalid: false}
  - at: 4.2
    cfUpdate: {intf: Ethernet1/1, ingressUpdate: false, egressMode: none, twoStepUpdate: false}
  - at: 4.3
    cfUpdate: {intf: Ethernet1/2, ingressUpdate: false, egressMode: none, twoStepUpdate: false}
  - at: 4.4
    cfUpdate: {intf: Ethernet2/1, egressMode: none}
  - at: 4.5
    cfUpdate: {intf: Ethernet3/2, valid: false}
  - at: 4.8
    cfUpdate: {intf: Ethernet3/2, forceSign: true}
  - at: 4.0
    phyTimeSync: {Ethernet3/1: true}
  - at: 4.2
    phyIsland: {Ethernet3/1: {rx: true, tx: true}}
  - at: 4.4
    phyTimeSync: {Ethernet3/1: false}
  - at: 4.5
    phyIsland: {Ethernet3/1: {rx: false, tx: false}}
  - at: 4.1
    hpxFault: {fault: text, text: 12ab, for: 0.3}
  - at: 4.6
    hpxFault: {fault: gpio, value: 5}
)";

}  // namespace Sim
