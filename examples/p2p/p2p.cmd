# Point-to-point switches for karven-p2p --cmd: trim every net, solve pair by pair.
P2P_USE_NETWORK_TRIM 1
P2P_NETWORK_TRIM_THRESHOLD 0
P2P_BATCH_MODE 0
