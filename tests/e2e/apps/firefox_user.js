// Preferences of the Firefox test's fresh profile (copied to its user.js). Firefox runs in a
// network namespace where any address leads to the loopback and every connection attempt is
// recorded; these keep it from trying to reach anything but the test's servers.

// Client certificates are chosen without asking (by the CA names the server sends).
user_pref("security.default_personal_cert", "Select Automatically");

// Every name resolves to 127.0.0.1 without a DNS query; no proxy, and no direct fallback if a
// proxy were configured; no DNS over HTTPS.
user_pref("network.dns.forceResolve", "127.0.0.1");
user_pref("network.proxy.type", 0);
user_pref("network.proxy.failover_direct", false);
user_pref("network.trr.mode", 5);
user_pref("network.dns.disablePrefetch", true);
user_pref("network.prefetch-next", false);
user_pref("network.http.speculative-parallel-limit", 0);
user_pref("network.captive-portal-service.enabled", false);
user_pref("network.connectivity-service.enabled", false);
user_pref("network.manage-offline-status", false);
user_pref("dom.push.connection.enabled", false);

// Updates of the browser, its add-ons, search engines and media plug-ins.
user_pref("app.update.disabledForTesting", true);
user_pref("app.update.auto", false);
user_pref("extensions.update.enabled", false);
user_pref("extensions.systemAddon.update.enabled", false);
user_pref("extensions.getAddons.cache.enabled", false);
user_pref("extensions.blocklist.enabled", false);
user_pref("browser.search.update", false);
user_pref("media.gmp-manager.updateEnabled", false);
user_pref("media.gmp-gmpopenh264.enabled", false);
user_pref("media.gmp-widevinecdm.enabled", false);

// Telemetry, studies, data reporting.
user_pref("toolkit.telemetry.enabled", false);
user_pref("toolkit.telemetry.unified", false);
user_pref("toolkit.telemetry.archive.enabled", false);
user_pref("toolkit.telemetry.server", "");
user_pref("datareporting.healthreport.uploadEnabled", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("datareporting.usage.uploadEnabled", false);
user_pref("app.normandy.enabled", false);
user_pref("app.normandy.api_url", "");
user_pref("app.shield.optoutstudies.enabled", false);
user_pref("messaging-system.rsexperimentloader.enabled", false);
user_pref("nimbus.rollouts.enabled", false);
user_pref("browser.ping-centre.telemetry", false);
user_pref("browser.newtabpage.activity-stream.feeds.telemetry", false);
user_pref("browser.newtabpage.activity-stream.telemetry", false);

// Safe browsing, remote settings (blocklists, CRLite, intermediates), certificate revocation.
user_pref("browser.safebrowsing.malware.enabled", false);
user_pref("browser.safebrowsing.phishing.enabled", false);
user_pref("browser.safebrowsing.downloads.enabled", false);
user_pref("browser.safebrowsing.downloads.remote.enabled", false);
user_pref("browser.safebrowsing.blockedURIs.enabled", false);
user_pref("browser.safebrowsing.provider.google4.updateURL", "");
user_pref("browser.safebrowsing.provider.google.updateURL", "");
user_pref("browser.safebrowsing.provider.mozilla.updateURL", "");
// (the test sets MOZ_REMOTE_SETTINGS_DEVTOOLS, without which this one is ignored)
user_pref("services.settings.server", "data:,#remote-settings-disabled/v1");
user_pref("security.remote_settings.crlite_filters.enabled", false);
user_pref("security.remote_settings.intermediates.enabled", false);
user_pref("security.OCSP.enabled", 0);
user_pref("security.certerrors.mitm.priming.enabled", false);

// Start-up pages, new-tab content, region and location lookups, accounts, suggestions.
user_pref("browser.startup.page", 0);
user_pref("browser.startup.homepage", "about:blank");
user_pref("browser.startup.homepage_override.mstone", "ignore");
user_pref("startup.homepage_welcome_url", "about:blank");
user_pref("startup.homepage_welcome_url.additional", "");
user_pref("browser.aboutwelcome.enabled", false);
user_pref("browser.shell.checkDefaultBrowser", false);
user_pref("browser.newtabpage.enabled", false);
user_pref("browser.newtabpage.activity-stream.feeds.topsites", false);
user_pref("browser.newtabpage.activity-stream.feeds.section.topstories", false);
user_pref("browser.newtabpage.activity-stream.showSponsored", false);
user_pref("browser.newtabpage.activity-stream.showSponsoredTopSites", false);
user_pref("browser.topsites.contile.enabled", false);
user_pref("browser.region.network.url", "");
user_pref("browser.region.update.enabled", false);
user_pref("geo.provider.network.url", "");
user_pref("identity.fxaccounts.enabled", false);
user_pref("browser.urlbar.suggest.searches", false);
user_pref("browser.urlbar.quicksuggest.enabled", false);
user_pref("browser.urlbar.merino.endpointURL", "");
user_pref("browser.discovery.enabled", false);
user_pref("browser.translations.enable", false);
user_pref("browser.ml.enable", false);
user_pref("browser.contentblocking.report.lockwise.enabled", false);
user_pref("extensions.getAddons.discovery.api_url", "data:, ");
user_pref("termsofuse.bypassNotification", true);
user_pref("browser.backup.enabled", false);
