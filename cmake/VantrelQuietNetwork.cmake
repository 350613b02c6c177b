# VANTREL_QUIET_NETWORK_CFG: the network configuration that tests and benchmarks run with unless they bring their
# own. It switches discovery off: nothing they do reaches the network that the machine is on, and a test that asks
# for an absent server does not wait for other servers to answer.
set(VANTREL_QUIET_NETWORK_CFG ${PROJECT_BINARY_DIR}/quiet-network.cfg)
string(UUID vantrel_quiet_host NAMESPACE 6ba7b811-9dad-11d1-80b4-00c04fd430c8 NAME ${PROJECT_BINARY_DIR} TYPE SHA1)
file(CONFIGURE OUTPUT ${VANTREL_QUIET_NETWORK_CFG} CONTENT
"[Local]
UUID=${vantrel_quiet_host}
[Interfaces]
Multicast=lo
[SelfDiscovery]
TTL=0
")
